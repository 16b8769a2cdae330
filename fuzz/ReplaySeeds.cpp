#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Runs a fuzz target over every file of the folders named on the command line, without the fuzzer.

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i);

int main(int argumentCount_i, char** arguments_i) {
  int files = 0;
  for (int index = 1; index < argumentCount_i; ++index) {
    for (auto const& entry : std::filesystem::directory_iterator(arguments_i[index])) {
      std::ifstream file(entry.path(), std::ios::binary);
      std::string const seed{std::istreambuf_iterator<char>(file), {}};
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);
      LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(seed.data()), seed.size());
      ++files;
    }
  }
  return files > 0 ? 0 : 1;
}
