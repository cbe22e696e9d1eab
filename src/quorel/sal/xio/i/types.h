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
// Options are set with tag types: spec.set<i::fopen::write::Enabled>(). Each
// tag is a type of its own derived from option::Tag, so that diagnostics and
// demangled names show the tag's name (i::fopen::read::Enabled), not the
// numbers behind it.
namespace option {
enum group { kOpen, kFile, kIgnored, kMux, kUnsupported };
enum state { kUnspecified = 0, kEnabled = 1, kDisabled = 2, kAppend = 1, kTruncate = 2 };
/// The base of every tag: which option group, which option (or word) and
/// which value.
template <int Group, int Option, int State>
struct Tag {
  static constexpr int group = Group;
  static constexpr int index = Option;
  static constexpr int value = State;
};
}  // namespace option

namespace open {
enum { kInherit, kNonblock, kCount };
template <int Option>
using On = option::Tag<option::kOpen, Option, option::kEnabled>;
template <int Option>
using Off = option::Tag<option::kOpen, Option, option::kDisabled>;
namespace inherit {
struct Enabled : On<kInherit> {};
struct Disabled : Off<kInherit> {};
}  // namespace inherit
namespace nonblock {
struct Enabled : On<kNonblock> {};
struct Disabled : Off<kNonblock> {};
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
using On = option::Tag<option::kFile, Option, option::kEnabled>;
template <int Option>
using Off = option::Tag<option::kFile, Option, option::kDisabled>;
/// Accepted by set() and ignored on this platform.
template <int Option>
using IgnoredOn = option::Tag<option::kIgnored, Option, option::kEnabled>;
template <int Option>
using IgnoredOff = option::Tag<option::kIgnored, Option, option::kDisabled>;

struct read {
  struct Enabled : On<kRead> {};
  struct Disabled : Off<kRead> {};
};
struct write {
  struct Enabled : On<kWrite> {};
  struct Disabled : Off<kWrite> {};
  struct create {
    struct Enabled : On<kCreate> {};
    struct Disabled : Off<kCreate> {};
  };
  struct init {
    struct Append : option::Tag<option::kFile, kInit, option::kAppend> {};
    struct Truncate : option::Tag<option::kFile, kInit, option::kTruncate> {};
  };
};
struct posix {
  struct user {
    struct read {
      struct Enabled : On<kUserRead> {};
      struct Disabled : Off<kUserRead> {};
    };
    struct write {
      struct Enabled : On<kUserWrite> {};
      struct Disabled : Off<kUserWrite> {};
    };
    struct exec {
      struct Enabled : On<kUserExec> {};
      struct Disabled : Off<kUserExec> {};
    };
  };
  struct group {
    struct read {
      struct Enabled : On<kGroupRead> {};
      struct Disabled : Off<kGroupRead> {};
    };
    struct write {
      struct Enabled : On<kGroupWrite> {};
      struct Disabled : Off<kGroupWrite> {};
    };
    struct exec {
      struct Enabled : On<kGroupExec> {};
      struct Disabled : Off<kGroupExec> {};
    };
  };
  struct other {
    struct read {
      struct Enabled : On<kOtherRead> {};
      struct Disabled : Off<kOtherRead> {};
    };
    struct write {
      struct Enabled : On<kOtherWrite> {};
      struct Disabled : Off<kOtherWrite> {};
    };
    struct exec {
      struct Enabled : On<kOtherExec> {};
      struct Disabled : Off<kOtherExec> {};
    };
  };
  struct sync {
    struct Enabled : On<kSync> {};
    struct Disabled : Off<kSync> {};
  };
  struct dsync {
    struct Enabled : On<kDSync> {};
    struct Disabled : Off<kDSync> {};
  };
  struct rsync {
    struct Enabled : On<kRSync> {};
    struct Disabled : Off<kRSync> {};
  };
};
struct lin {
  struct direct {
    struct Enabled : On<kDirect> {};
    struct Disabled : Off<kDirect> {};
  };
};
struct win {
  struct writethru {
    struct Enabled : IgnoredOn<0> {};
    struct Disabled : IgnoredOff<0> {};
  };
  struct sysbuff {
    struct Enabled : IgnoredOn<1> {};
    struct Disabled : IgnoredOff<1> {};
  };
  struct access {
    struct Sequential : IgnoredOn<2> {};
    struct Random : IgnoredOff<2> {};
  };
  struct share {
    struct read {
      struct Enabled : IgnoredOn<3> {};
      struct Disabled : IgnoredOff<3> {};
    };
    struct write {
      struct Enabled : IgnoredOn<4> {};
      struct Disabled : IgnoredOff<4> {};
    };
  };
};
struct sol {
  struct share {
    struct read {
      struct Enabled : IgnoredOn<5> {};
      struct Disabled : IgnoredOff<5> {};
    };
    struct write {
      struct Enabled : IgnoredOn<6> {};
      struct Disabled : IgnoredOff<6> {};
    };
  };
};
struct mac {
  struct fullsync {
    struct Enabled : IgnoredOn<7> {};
    struct Disabled : IgnoredOff<7> {};
  };
  struct cache {
    struct Enabled : IgnoredOn<8> {};
    struct Disabled : IgnoredOff<8> {};
  };
  struct readahead {
    struct Enabled : IgnoredOn<9> {};
    struct Disabled : IgnoredOff<9> {};
  };
  struct lock {
    struct Exclusive : IgnoredOn<10> {};
    struct Shared : IgnoredOff<10> {};
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

/// The base of the mux tags: which word and the value it takes.
template <int Word, int Value>
using Tag = option::Tag<option::kMux, Word, Value>;
template <int Word>
using On = Tag<Word, kEnabled>;
template <int Word>
using Off = Tag<Word, kDisabled>;
/// A type other platforms offer: setting it fails.
template <int Value>
using Unsupported = option::Tag<option::kUnsupported, kType, Value>;

// Which dispatcher Dispatcher::create builds: Sync or Async on this platform.
namespace type {
struct NULLSync : Tag<kType, 0> {};
struct MemSync : Tag<kType, 1> {};
struct Sync : Tag<kType, 2> {};
struct Async : Tag<kType, 3> {};
struct Select : Tag<kType, 4> {};
struct KQueue : Unsupported<5> {
  static const char* name() { return "KQueue"; }
};
struct DevPoll : Unsupported<6> {
  static const char* name() { return "DevPoll"; }
};
}  // namespace type

struct posix {
  struct rt {
    struct Enabled : On<kPOSIXRT> {};
    struct Disabled : Off<kPOSIXRT> {};
  };
  struct fsync {
    struct Enabled : On<kPOSIXFSync> {};
    struct Disabled : Off<kPOSIXFSync> {};
  };
};
/// Synchronous requests on a TCP or UDP socket move all their bytes.
struct tcp {
  struct Enabled : On<kTCP> {};
  struct Disabled : Off<kTCP> {};
};
struct udp {
  struct Enabled : On<kUDP> {};
  struct Disabled : Off<kUDP> {};
};
/// Synchronous reads and writes as SCSI commands through SG_IO; writes as
/// UNMAP of the request's range with unmap.
struct scsi {
  struct Enabled : On<kSCSI> {};
  struct Disabled : Off<kSCSI> {};
  struct extended {  // the version-4 (bsg) header
    struct Enabled : On<kSCSIExtended> {};
    struct Disabled : Off<kSCSIExtended> {};
  };
  struct fua {  // Force Unit Access
    struct Enabled : On<kSCSIFUA> {};
    struct Disabled : Off<kSCSIFUA> {};
  };
  struct t10pi {  // the device checks protection information
    struct Enabled : On<kSCSIT10PI> {};
    struct Disabled : Off<kSCSIT10PI> {};
  };
  /// The size of the READ/WRITE command blocks. The 10-byte form (rw10, the
  /// default) carries only the low 32 bits of the LBA and the low 16 bits of
  /// the block count, with no range check: a request at block 2^32 or beyond,
  /// or of more than 65535 blocks, reaches other blocks than asked (the LBA and
  /// the count wrap). Choose rw16 (64-bit LBA, 32-bit count) or rw32 whenever
  /// the device has 2^32 blocks or more or a request may exceed 65535 blocks.
  struct rw10 : Tag<kSCSICDBSize, 0> {};  // the default
  struct rw16 : Tag<kSCSICDBSize, 1> {};
  struct rw32 : Tag<kSCSICDBSize, 2> {};
  struct unmap {
    struct Enabled : On<kSCSIUNMAP> {};
    struct Disabled : Off<kSCSIUNMAP> {};
  };
};
/// Synchronous writes as ATA TRIM of the request's range, directly or (onscsi)
/// inside SCSI ATA PASS-THROUGH.
struct ata {
  struct trim {
    struct Enabled : On<kATATrim> {};
    struct Disabled : Off<kATATrim> {};
  };
  struct onscsi {
    struct Enabled : On<kATAOnSCSI> {};
    struct Disabled : Off<kATAOnSCSI> {};
  };
};
struct winiocp {  // kept, not used on this platform
  struct Enabled : On<kWinIOCP> {};
  struct Disabled : Off<kWinIOCP> {};
};

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
