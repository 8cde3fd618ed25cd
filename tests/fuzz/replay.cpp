#include <cstdio>

#include "fuzz.hpp"
#include "testbed/scratch.hpp"

/// The main function of a target without libFuzzer: tries each of the named inputs once.
int main(int count, char** paths) {
  const tarnwick::testbed::Scratch scratch;  // targets create files in the working directory
  for (int i = 1; i < count; ++i) {
    std::ifstream stream(paths[i], std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    std::filesystem::current_path(scratch.path(""));
    std::fprintf(stderr, "%s\n", paths[i]);
    tarnwick::fuzz::tryInput(input);
  }
}
