// The tool's I/O buffers. Apart from command.h, which the manual page's
// program (built without the library) includes too.
#ifndef QUOREL_TOOLS_QUOREL_BUFFER_H
#define QUOREL_TOOLS_QUOREL_BUFFER_H

#include <cstddef>

#include <quorel/sal/vm.h>

namespace tool {

// A page-aligned buffer (direct I/O needs aligned memory).
class Buffer {
 public:
  explicit Buffer(size_t size) : data_(static_cast<char*>(quorel::sal::vm::allocate(size))) {}
  ~Buffer() { quorel::sal::vm::deallocate(data_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  char* data() const { return data_; }

 private:
  char* data_;
};

}  // namespace tool

#endif
