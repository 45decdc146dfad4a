// Starts and ends with the same libraries as the tool: the floor under `quillmere --help`.

#include <iostream>

int main() {
  return std::cout.good() ? 0 : 1;
}
