// The shared library's own translation unit: the entry points come from the
// plug-in's core library, linked in whole.
