// qvmeta -json -backupid ID: prints the metadata of one image of the stand-in's catalogue.

#include <string>
#include <string_view>

#include "faults.h"
#include "product.h"

int main(int argc, char** argv) {
  if (argc != 4 || std::string_view(argv[1]) != "-json" ||
      std::string_view(argv[2]) != "-backupid") {
    return Fail("qvmeta", "usage: qvmeta -json -backupid ID");
  }
  const std::string root = ProductRoot("/bin/admincmd/qvmeta");
  const std::string image = ImagePath(root, argv[3]);
  BeginFaults(root, "qvmeta", argv[3]);
  const bool is_known = !image.empty() && !IsForgotten(root, image);
  return is_known && PrintFile(image + ".meta") ? 0 : Fail("qvmeta", "no such image");
}
