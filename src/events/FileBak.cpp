#include "events/FileBak.h"

#include <fstream>
#include <iterator>

bool CFileBak::ReadWholeFile(const std::string& path, std::string& text, size_t maxBytes) {
  text.clear();
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  if (size < 0 || static_cast<unsigned long long>(size) > maxBytes) return false;
  file.seekg(0, std::ios::beg);
  text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}
