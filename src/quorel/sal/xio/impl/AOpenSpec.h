/// \file
/// Open specs: what an endpoint's identifier is and how it is
/// opened, closed, duplicated and described.
#ifndef QUOREL_SAL_XIO_IMPL_AOPENSPEC_H
#define QUOREL_SAL_XIO_IMPL_AOPENSPEC_H

#include <string>

#include <quorel/sal/io/TCPSocket.h>
#include <quorel/sal/io/impl/Selector.h>
#include <quorel/sal/xio/i/types.h>
#include <quorel/sal/xio/impl/Spec.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

/// Created open. close() keeps the former identifier as previous() and leaves
/// none; a clone is a new object the caller owns (or null where the kind
/// cannot be cloned).
class AOpenSpec {
 public:
  AOpenSpec(const std::string& name, i::id::type id) : name_(name), id_(id), previous_(i::id::kNone) {}
  virtual ~AOpenSpec();
  virtual void open() = 0;
  virtual void close() = 0;
  virtual AOpenSpec* clone(i::open::inherit::Disabled) const = 0;
  virtual AOpenSpec* clone(i::open::inherit::Enabled) const = 0;
  virtual std::string asString() const = 0;
  /// The descriptor a selector watches: the identifier as a descriptor (-1
  /// when closed), -1 for kinds whose identifier is no descriptor, the
  /// socket's own for socket endpoints.
  virtual int descriptor() const { return static_cast<int>(id_); }
  /// The socket of a socket endpoint (selectors join its list), else null.
  virtual io::impl::Socket* socket() { return nullptr; }

  const std::string& name() const { return name_; }
  i::id::type id() const { return id_; }
  i::id::type previous() const { return previous_; }

 protected:
  /// The identifier moves to previous and none is current.
  void drop() {
    previous_ = id_;
    id_ = i::id::kNone;
  }
  void replace(i::id::type id) {
    previous_ = id_;
    id_ = id;
  }

  std::string name_;
  i::id::type id_;
  i::id::type previous_;
};

/// A file opened with open64; the descriptor is owned.
class FileOpenSpec : public AOpenSpec {
 public:
  FileOpenSpec(const std::string& path, const fopen::Spec& spec);
  ~FileOpenSpec() override;
  /// Opens the path again; the former descriptor is not closed.
  void open() override;
  void close() override;
  AOpenSpec* clone(i::open::inherit::Disabled) const override;
  AOpenSpec* clone(i::open::inherit::Enabled) const override;
  std::string asString() const override { return spec_.flagNames(); }

 private:
  FileOpenSpec(const std::string& path, const fopen::Spec& spec, i::id::type id);
  AOpenSpec* cloneWith(bool inherit) const;

  fopen::Spec spec_;
};

/// A descriptor the caller already has, owned (adopted) or not (wrapped).
class DescWrapper : public AOpenSpec {
 public:
  /// Throws WrapException "attempt to wrap an invalid descriptor" when owns
  /// (adopting) and AdoptException "attempt to adaopt an invalid descriptor"
  /// when not (wrapping) for i::id::kNone: class and text are swapped with
  /// respect to the path taken, as callers have always seen them.
  DescWrapper(const std::string& name, i::id::type id, bool owns, const open::Spec& spec);
  /// A standard handle: inherit is Enabled if the descriptor is not
  /// close-on-exec; nonblock stays Disabled.
  DescWrapper(const std::string& name, i::id::type id, bool owns);
  ~DescWrapper() override;
  void open() override {}
  void close() override;
  AOpenSpec* clone(i::open::inherit::Disabled) const override;
  AOpenSpec* clone(i::open::inherit::Enabled) const override;
  std::string asString() const override { return "WRAPPED"; }

 private:
  void check() const;
  AOpenSpec* cloneWith(bool inherit) const;

  bool owns_;
  open::Spec spec_;
};

/// A piece of memory; the identifier is the address of its record.
class MemOpenSpec : public AOpenSpec {
 public:
  MemOpenSpec(const std::string& name, void* address, unsigned int length);
  void open() override {}
  void close() override {}
  AOpenSpec* clone(i::open::inherit::Disabled) const override;
  AOpenSpec* clone(i::open::inherit::Enabled) const override;
  std::string asString() const override { return description_; }
  int descriptor() const override { return -1; }

  /// The memory's address and length, laid out as a descriptor-sized record.
  struct Record {
    pod::uintptr address;
    pod::uint32 length;
    pod::uint32 reserved[3];
  };
  const Record& record() const { return record_; }

 private:
  std::string description_;
  Record record_;
};

/// Nothing; the identifier is the object's address. A clone is named after
/// the source's whole description, so each generation adds a bracketed group.
class NULLOpenSpec : public AOpenSpec {
 public:
  explicit NULLOpenSpec(const std::string& name);
  void open() override {}
  void close() override {}
  AOpenSpec* clone(i::open::inherit::Disabled) const override;
  AOpenSpec* clone(i::open::inherit::Enabled) const override;
  std::string asString() const override { return description_; }
  int descriptor() const override { return -1; }

 private:
  std::string description_;
};

/// A connected TCP client, closed when this object goes. Cannot be cloned (null).
class TCPOpenSpec : public AOpenSpec {
 public:
  TCPOpenSpec(const io::TCPBindingAddress& binding, const io::TCPConnectingAddress& connecting);
  void open() override {}
  void close() override {}
  AOpenSpec* clone(i::open::inherit::Disabled) const override { return nullptr; }
  AOpenSpec* clone(i::open::inherit::Enabled) const override { return nullptr; }
  std::string asString() const override { return "TCP"; }
  io::impl::Socket* socket() override { return socket_.impl().operator->(); }

 private:
  io::TCPClientSocket socket_;
};

/// A socket shared with the io socket objects it came from. close() closes the
/// socket; however it closes, the identifier becomes none at once, so the
/// endpoint never uses a number that may already mean something else.
class SocketOpenSpec final : public AOpenSpec, private io::impl::Watcher {
 public:
  explicit SocketOpenSpec(const io::ASocketEndpoint& socket);
  ~SocketOpenSpec() override;
  void open() override {}
  void close() override { socket_.close(); }
  AOpenSpec* clone(i::open::inherit::Disabled) const override { return nullptr; }
  AOpenSpec* clone(i::open::inherit::Enabled) const override { return nullptr; }
  /// "TCP" or "UDP".
  std::string asString() const override;
  int descriptor() const override { return socket_.impl().reference().descriptor(); }
  io::impl::Socket* socket() override { return socket_.impl().operator->(); }

 private:
  void closing() noexcept override { drop(); }

  io::ASocketEndpoint socket_;
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
