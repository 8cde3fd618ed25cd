#include <cstdio>

#include "fuzz.hpp"
#include "testbed/scratch.hpp"

/// In libFuzzer's place, where there is none: tries each of the inputs that are named, once.
int main(int count, char** paths) {
  const tarnwick::testbed::Scratch scratch;  // targets make and remove files where they are
  for (int i = 1; i < count; ++i) {
    std::ifstream stream(paths[i], std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    std::filesystem::current_path(scratch.path(""));
    std::fprintf(stderr, "%s\n", paths[i]);
    tarnwick::fuzz::tryInput(input);
  }
}
