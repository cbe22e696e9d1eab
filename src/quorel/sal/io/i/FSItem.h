/// \file
/// FSItem: something a directory holds, known by its name and kind.
#ifndef QUOREL_SAL_IO_I_FSITEM_H
#define QUOREL_SAL_IO_I_FSITEM_H

#include <string>

#include <quorel/sal/fs/i/entry.h>

namespace quorel {
namespace sal {
namespace io {
namespace i {

/// An entry of a directory: fs::Entry is the one a listing yields. Held by
/// util::AHandleTo<FSItem> where entries outlive their listing.
class FSItem {
 public:
  virtual ~FSItem();
  /// The entry's name within its directory: bytes, not necessarily text.
  virtual const std::string& name() const = 0;
  virtual fs::i::entry::type type() const = 0;
};

}  // namespace i
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
