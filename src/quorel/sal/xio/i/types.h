/// \file
/// Identifiers, offsets and the option tags of the extended I/O layer.
#ifndef QUOREL_SAL_XIO_I_TYPES_H
#define QUOREL_SAL_XIO_I_TYPES_H

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace i {

namespace id {
/// The descriptor of descriptor-backed endpoints; an opaque address for memory
/// and null endpoints. All ones: no identifier.
typedef pod::uint32 type;
const type kNone = 0xffffffffu;
}  // namespace id

namespace offset {
typedef long long type;  // a signed byte offset
}  // namespace offset

// An option tag: which option group, which option in it and which state.
// Options are set with tag types: spec.set<i::fopen::write::Enabled>().
namespace option {
enum group { kOpen, kFile, kIgnored, kMux, kUnsupported };
enum state { kUnspecified = 0, kEnabled = 1, kDisabled = 2, kAppend = 1, kTruncate = 2 };
/// A tag type: which option group, which option (or word) and which value.
template <int Group, int Option, int State>
struct Tag {
  static constexpr int group = Group;
  static constexpr int index = Option;
  static constexpr int value = State;
};
}  // namespace option

namespace open {
enum { kInherit, kNonblock, kCount };
namespace inherit {
typedef option::Tag<option::kOpen, kInherit, option::kEnabled> Enabled;
typedef option::Tag<option::kOpen, kInherit, option::kDisabled> Disabled;
}  // namespace inherit
namespace nonblock {
typedef option::Tag<option::kOpen, kNonblock, option::kEnabled> Enabled;
typedef option::Tag<option::kOpen, kNonblock, option::kDisabled> Disabled;
}  // namespace nonblock
}  // namespace open

namespace fopen {

/// Options of a file open, in the order of their flag names.
enum {
  kRead, kWrite, kCreate, kInit,
  kUserRead, kUserWrite, kUserExec, kGroupRead, kGroupWrite, kGroupExec, kOtherRead, kOtherWrite, kOtherExec,
  kSync, kDSync, kRSync, kDirect, kCount
};

/// The two states of one option.
template <int Option>
struct Switch {
  typedef option::Tag<option::kFile, Option, option::kEnabled> Enabled;
  typedef option::Tag<option::kFile, Option, option::kDisabled> Disabled;
};
/// Accepted by set() and ignored on this platform.
template <int Option>
struct Ignored {
  typedef option::Tag<option::kIgnored, Option, option::kEnabled> Enabled;
  typedef option::Tag<option::kIgnored, Option, option::kDisabled> Disabled;
};

struct read : Switch<kRead> {};
struct write : Switch<kWrite> {
  struct create : Switch<kCreate> {};
  struct init {
    typedef option::Tag<option::kFile, kInit, option::kAppend> Append;
    typedef option::Tag<option::kFile, kInit, option::kTruncate> Truncate;
  };
};
struct posix {
  struct user {
    struct read : Switch<kUserRead> {};
    struct write : Switch<kUserWrite> {};
    struct exec : Switch<kUserExec> {};
  };
  struct group {
    struct read : Switch<kGroupRead> {};
    struct write : Switch<kGroupWrite> {};
    struct exec : Switch<kGroupExec> {};
  };
  struct other {
    struct read : Switch<kOtherRead> {};
    struct write : Switch<kOtherWrite> {};
    struct exec : Switch<kOtherExec> {};
  };
  struct sync : Switch<kSync> {};
  struct dsync : Switch<kDSync> {};
  struct rsync : Switch<kRSync> {};
};
struct lin {
  struct direct : Switch<kDirect> {};
};
struct win {
  struct writethru : Ignored<0> {};
  struct sysbuff : Ignored<1> {};
  struct access {
    typedef option::Tag<option::kIgnored, 2, option::kEnabled> Sequential;
    typedef option::Tag<option::kIgnored, 2, option::kDisabled> Random;
  };
  struct share {
    struct read : Ignored<3> {};
    struct write : Ignored<4> {};
  };
};
struct sol {
  struct share {
    struct read : Ignored<5> {};
    struct write : Ignored<6> {};
  };
};
struct mac {
  struct fullsync : Ignored<7> {};
  struct cache : Ignored<8> {};
  struct readahead : Ignored<9> {};
  struct lock {
    typedef option::Tag<option::kIgnored, 10, option::kEnabled> Exclusive;
    typedef option::Tag<option::kIgnored, 10, option::kDisabled> Shared;
  };
};

}  // namespace fopen

// The options of a dispatcher's mux::Spec: fourteen words, each tag naming a
// word and the value it sets. Two-state words hold 0 for Enabled and 1 for
// Disabled.
namespace mux {

enum word {
  kType, kPOSIXRT, kPOSIXFSync, kTCP, kUDP, kSCSI, kSCSIExtended, kSCSIFUA, kSCSIT10PI, kSCSICDBSize,
  kSCSIUNMAP, kATATrim, kATAOnSCSI, kWinIOCP, kCount
};
enum { kEnabled = 0, kDisabled = 1 };

template <int Word, int Value>
struct Tag {
  static constexpr int group = option::kMux;
  static constexpr int index = Word;
  static constexpr int value = Value;
};
template <int Word>
struct Switch {
  typedef Tag<Word, kEnabled> Enabled;
  typedef Tag<Word, kDisabled> Disabled;
};
/// A type other platforms offer: setting it fails.
template <int Value>
struct Unsupported {
  static constexpr int group = option::kUnsupported;
  static constexpr int index = kType;
  static constexpr int value = Value;
};

// Which dispatcher Dispatcher::create builds: Sync or Async on this platform.
namespace type {
typedef Tag<kType, 0> NULLSync;
typedef Tag<kType, 1> MemSync;
typedef Tag<kType, 2> Sync;
typedef Tag<kType, 3> Async;
typedef Tag<kType, 4> Select;
struct KQueue : Unsupported<5> {
  static const char* name() { return "KQueue"; }
};
struct DevPoll : Unsupported<6> {
  static const char* name() { return "DevPoll"; }
};
}  // namespace type

struct posix {
  struct rt : Switch<kPOSIXRT> {};
  struct fsync : Switch<kPOSIXFSync> {};
};
/// Synchronous requests on a TCP or UDP socket move all their bytes.
struct tcp : Switch<kTCP> {};
struct udp : Switch<kUDP> {};
/// Synchronous reads and writes as SCSI commands through SG_IO; writes as
/// UNMAP of the request's range with unmap.
struct scsi : Switch<kSCSI> {
  struct extended : Switch<kSCSIExtended> {};  // the version-4 (bsg) header
  struct fua : Switch<kSCSIFUA> {};            // Force Unit Access
  struct t10pi : Switch<kSCSIT10PI> {};        // the device checks protection information
  typedef Tag<kSCSICDBSize, 0> rw10;           // the default
  typedef Tag<kSCSICDBSize, 1> rw16;
  typedef Tag<kSCSICDBSize, 2> rw32;
  struct unmap : Switch<kSCSIUNMAP> {};
};
/// Synchronous writes as ATA TRIM of the request's range, directly or (onscsi)
/// inside SCSI ATA PASS-THROUGH.
struct ata {
  struct trim : Switch<kATATrim> {};
  struct onscsi : Switch<kATAOnSCSI> {};
};
struct winiocp : Switch<kWinIOCP> {};  // kept, not used on this platform

}  // namespace mux

// The operation of a request.
namespace op {
struct Read {};
struct Write {};
}  // namespace op

// The standard handles.
namespace stdfd {
struct Input {};
struct Output {};
struct Error {};
}  // namespace stdfd

// Where a seek counts from.
namespace fseek {
namespace from {
struct Begin {};
struct Current {};
struct End {};
}  // namespace from
}  // namespace fseek

}  // namespace i
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
