#include "publisher/publisher.hpp"

int main(int argc, char** argv) {
  return tarnwick::publisher::runPublisher(argc, argv);
}
