// A private scratch directory for one test, removed with everything in it,
// and the whole-file reads and writes the tests do in it.
#pragma once

#include <stdlib.h>  // mkdtemp, where glibc declares it
#include <unistd.h>  // mkdtemp, where macOS declares it

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace ac::test {

class ScratchDir {
 public:
  ScratchDir() {
    // The temporary directory as it was at the first scratch: tests that
    // point TMPDIR into a scratch of their own must not nest the next one there.
    static const std::filesystem::path base = std::filesystem::temp_directory_path();
    std::string pattern = (base / "ac-test-XXXXXX").string();
    root_ = ::mkdtemp(pattern.data());
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& root() const { return root_; }
  std::string path(const std::string& name) const { return root_ + "/" + name; }
  std::string read(const std::string& name) const { return contents(path(name)); }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }

  // Creates the parent directories; `executable` makes the file owner-only rwx.
  static void write(const std::string& file, const std::string& data, bool executable = false) {
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << data;
    if (executable) std::filesystem::permissions(file, std::filesystem::perms::owner_all);
  }
  static std::string contents(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::string root_;
};

}  // namespace ac::test
