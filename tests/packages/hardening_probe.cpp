// Oversteps its memory where hardening notices it, to see whether this build does:
//
//   hardening_probe copy TEXT    copies TEXT into 8 bytes
//   hardening_probe stack TEXT   writes TEXT over one byte of a frame, and what is above it

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

char small[8];

// Not known to the compiler, which would warn of what is meant here.
void (*volatile write_over)(char*, const char*) = [](char* to, const char* text) {
  for (volatile char* at = to; *text != '\0'; ++text) {
    *at = *text;
    at = at + 1;
  }
};

// A frame without an array, which only the strong protector looks after.
[[gnu::noinline]] char OverrunFrame(const char* text) {
  char byte = ' ';
  write_over(&byte, text);
  return byte;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  if (std::string_view(argv[1]) == "copy") {
    std::strcpy(small, argv[2]);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): on purpose
    std::puts(small);
    return 0;
  }
  return OverrunFrame(argv[2]) == argv[2][0] ? 0 : 1;
}
