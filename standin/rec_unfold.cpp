// rec_unfold -dump FILE: prints the file entries in a catalogue file of the stand-in.

#include <string_view>

#include "faults.h"
#include "product.h"

int main(int argc, char** argv) {
  if (argc != 3 || std::string_view(argv[1]) != "-dump") {
    return Fail("rec_unfold", "usage: rec_unfold -dump FILE");
  }
  BeginFaultsOfFile(ProductRoot("/bin/rec_unfold"), argv[2]);
  // A catalogue file of the stand-in is the text of its entries, ready to be sent.
  return PrintFile(argv[2]) ? 0 : Fail("rec_unfold", "cannot unfold the catalogue file");
}
