// What a file or block device is and how large: fs::Stat asks the kernel and,
// for devices, the device itself (READ CAPACITY); failures stay as texts.
//
//   device_capacity [PATH...]    (default: /dev/null and /etc/os-release)
#include <iostream>
#include <string>
#include <vector>

#include <quorel/quorel.h>

using namespace quorel::sal;

int main(int argc, char** argv) {
  std::vector<std::string> paths(argv + 1, argv + argc);
  if (paths.empty()) paths = {"/dev/null", "/etc/os-release"};
  try {
    for (const std::string& path : paths) {
      const fs::Stat stat(path);
      std::cout << path << ": ";
      if (!stat.exists()) {
        std::cout << "does not exist\n";
        continue;
      }
      std::cout << stat.size() << " bytes in blocks of " << stat.blockSize();
      if (stat.sizeByRC() != 0) std::cout << "; READ CAPACITY: " << stat.sizeByRC() << " bytes";
      if (!stat.errorRC().empty()) std::cout << "; READ CAPACITY failed: " << stat.errorRC();
      std::cout << "\n";
    }
    return 0;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
