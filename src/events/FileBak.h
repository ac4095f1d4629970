// FileBak.h - whole-file reading for the plug-in's configuration.
#pragma once

#include <cstddef>
#include <string>

class CFileBak {
 public:
  // Reads all of `path` into `text`. False when the file cannot be opened,
  // cannot be read or is larger than `maxBytes` (a configuration never is).
  static bool ReadWholeFile(const std::string& path, std::string& text, size_t maxBytes = 1024 * 1024);
};
