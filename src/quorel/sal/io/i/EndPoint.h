/// \file
/// Interfaces of the I/O layer realised by sockets.
#ifndef QUOREL_SAL_IO_I_ENDPOINT_H
#define QUOREL_SAL_IO_I_ENDPOINT_H

namespace quorel {
namespace sal {
namespace io {
namespace i {

/// Something with an I/O identifier that can be closed.
class EndPoint {
 public:
  virtual ~EndPoint() {}
  virtual unsigned long long id() const = 0;
  virtual void close() = 0;
};

/// Something bytes can be read from: at most size bytes per call; 0 means the
/// other side ended.
class Source {
 public:
  virtual ~Source() {}
  virtual int get(void* buffer, int size) = 0;
  virtual int get(void* buffer, int size, int timeout) = 0;
};

/// Something bytes can be written to: at most size bytes per call.
class Sink {
 public:
  virtual ~Sink() {}
  virtual int put(const void* buffer, int size) = 0;
  virtual int put(const void* buffer, int size, int timeout) = 0;
};

}  // namespace i
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
