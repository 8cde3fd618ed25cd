#include "program/run_driver.hpp"

int main(int argc, char** argv) {
  return tarnwick::runTarnwick(argc, argv);
}
