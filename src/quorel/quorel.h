/// \file
/// The whole public interface of quorel.
#ifndef QUOREL_QUOREL_H
#define QUOREL_QUOREL_H

#include <quorel/util/pod.h>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>
#include <quorel/util/ADeallocatorOf.h>
#include <quorel/util/ARefCounted.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/ALockLatchFor.h>
#include <quorel/util/ASimpleFinalizerOf.h>
#include <quorel/util/str.h>
#include <quorel/util/byte.h>
#include <quorel/util/Blob.h>
#include <quorel/util/StringToBlob.h>
#include <quorel/util/Version.h>
#include <quorel/util/UUID.h>

#include <quorel/sal/i/err.h>
#include <quorel/sal/err.h>
#include <quorel/sal/Exception.h>
#include <quorel/sal/atomic.h>
#include <quorel/sal/AtomicCounter.h>
#include <quorel/sal/time.h>
#include <quorel/sal/vm.h>
#include <quorel/sal/hostinfo.h>

// The platform layer's exported functions.
#include <quorel/sal/sys/atomic.h>
#include <quorel/sal/sys/err.h>
#include <quorel/sal/sys/time.h>
#include <quorel/sal/sys/uuid.h>

#include <quorel/sal/exec/Exception.h>
#include <quorel/sal/exec/SpinLock.h>
#include <quorel/sal/exec/Mutex.h>
#include <quorel/sal/exec/CondVar.h>
#include <quorel/sal/exec/CVOneShot.h>
#include <quorel/sal/exec/TSDPair.h>
#include <quorel/sal/exec/i/Task.h>
#include <quorel/sal/exec/Thread.h>
#include <quorel/sal/exec/NamedMutex.h>
#include <quorel/sal/exec/Module.h>
#include <quorel/sal/sys/exec/thr.h>
#include <quorel/sal/sys/exec/ExitException.h>
#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/Listing.h>
#include <quorel/sal/fs/Path.h>
#include <quorel/sal/fs/Stat.h>
#include <quorel/sal/fs/TemporaryDirectory.h>
#include <quorel/sal/fs/dir.h>
#include <quorel/sal/inet/Exception.h>
#include <quorel/sal/inet/Link.h>
#include <quorel/sal/inet/Address.h>
#include <quorel/sal/inet/impl/addr.h>
#include <quorel/sal/inet/fw/i/rule.h>
#include <quorel/sal/inet/fw/DynamicRule.h>
#include <quorel/sal/inet/fw/Chain.h>
#include <quorel/sal/sys/io/BSDSocket.h>
#include <quorel/sal/sys/io/endpoint.h>
#include <quorel/sal/io/AINETAddress.h>
#include <quorel/sal/io/ASocketEndpoint.h>
#include <quorel/sal/io/TCPSocket.h>
#include <quorel/sal/io/UDPSocket.h>
#include <quorel/sal/io/Selector.h>
#include <quorel/sal/io/BinaryBuffer.h>
#include <quorel/sal/io/Exception.h>
#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/err.h>
#include <quorel/sal/xio/i/types.h>
#include <quorel/sal/xio/Spec.h>
#include <quorel/sal/xio/impl/desc.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/Stream.h>
#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/exec/Process.h>
#include <quorel/sal/exec/App.h>
#include <quorel/sal/sys/exec/AApp.h>
#include <quorel/sal/sys/exec/sig.h>
#include <quorel/sal/sys/runtime.h>
#include <quorel/sal/xio/scsi/sense.h>
#include <quorel/sal/xio/scsi/IOControl.h>
#include <quorel/sal/xio/impl/scsi/op.h>
#include <quorel/sal/xio/impl/ata/IOControl.h>

#endif
