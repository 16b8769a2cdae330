#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>

// A folder of a test's own, gone with everything in it when the test ends. Its path is free of links.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name =
        (std::filesystem::canonical(std::filesystem::temp_directory_path()) / "plx-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder " + name);
    myPath = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(myPath, ignored);
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;

  std::filesystem::path const& Path() const { return myPath; }
  std::filesystem::path operator/(std::filesystem::path const& name_i) const { return myPath / name_i; }

  // Writes a file, with the folders it needs.
  std::filesystem::path Write(std::filesystem::path const& name_i, std::string const& text_i) const {
    std::filesystem::create_directories((myPath / name_i).parent_path());
    std::ofstream(myPath / name_i, std::ios::binary) << text_i;
    return myPath / name_i;
  }
  std::filesystem::path MakeFolder(std::filesystem::path const& name_i) const {
    std::filesystem::create_directories(myPath / name_i);
    return myPath / name_i;
  }
  std::string Read(std::filesystem::path const& name_i) const {
    std::ostringstream text;
    text << std::ifstream(myPath / name_i, std::ios::binary).rdbuf();
    return text.str();
  }

 private:
  std::filesystem::path myPath;
};
