// SCSI READ(10) and READ(16) of 64 KiB through scsi::IOControl against sg_dd,
// on the test bed's scsi_debug disk:
//   QUOREL_TESTBED_EXTRA=/usr/bin/sg_dd scripts/testbed build/i386/bench/quorel_vm_bench
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <quorel/quorel.h>

namespace {

double seconds() {
  timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

const int kTransfer = 65536;
const long long kTotal = 64LL << 20;  // the whole 64 MiB disk
const int kRounds = 8;

double ours(const char* device, int cdbSize) {
  const int fd = ::open(device, O_RDWR);
  quorel::sal::xio::impl::scsi::IOControl io(false);
  std::vector<char> buffer(kTransfer);
  const double start = seconds();
  for (int round = 0; round < kRounds; ++round) {
    for (long long offset = 0; offset < kTotal; offset += kTransfer) {
      int status, sense;
      if (quorel::sal::xio::impl::fio::scsi::op(false, io, static_cast<unsigned>(fd), buffer.data(), kTransfer, 512,
                                                offset, false, false, 60, status, sense, cdbSize) != kTransfer) {
        std::printf("read failed at %lld\n", offset);
        return 0;
      }
    }
  }
  const double elapsed = seconds() - start;
  ::close(fd);
  return kRounds * kTotal / elapsed / 1e6;
}

double sgdd(const char* device, int cdbSize) {
  const std::string command = std::string("sg_dd if=") + device + " of=/dev/null bs=512 bpt=128 count=" +
                              std::to_string(kTotal / 512) + " cdbsz=" + std::to_string(cdbSize) + " 2>/dev/null";
  const double start = seconds();
  for (int round = 0; round < kRounds; ++round) {
    if (std::system(command.c_str()) != 0) return 0;
  }
  return kRounds * kTotal / (seconds() - start) / 1e6;
}

}  // namespace

int main() {
  const char* device = std::getenv("QUOREL_SG_SCSI_DEBUG");
  if (device == nullptr) {
    std::printf("no scsi_debug disk\n");
    return 1;
  }
  for (int cdbSize : {10, 16}) {
    const double a = ours(device, cdbSize), b = sgdd(device, cdbSize);
    std::printf("READ(%d) 64 KiB: scsi::IOControl %.0f MB/s, sg_dd %.0f MB/s (%.2fx)\n", cdbSize, a, b, b > 0 ? a / b : 0);
  }
  return 0;
}
