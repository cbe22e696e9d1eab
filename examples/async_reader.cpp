// Reads a file with the kernel's native asynchronous I/O: a Dispatcher of
// type Async keeps DEPTH requests in flight, each handler call submitting the
// next block, and a checksum adds up what arrived.
//
//   async_reader [FILE [DEPTH]]    (default: the program itself, depth 8)
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <quorel/quorel.h>

using namespace quorel::sal;

namespace {

const int kBlock = 65536;

class Reader : public xio::AHandler {
 public:
  explicit Reader(long long size) : size_(size) {}

  void next(xio::Request& request) {
    if (offset_ >= size_) return;
    request.submit(xio::i::op::Read(), buffers_[request.id()].data(), kBlock, offset_);
    offset_ += kBlock;
  }
  std::vector<std::vector<char>> buffers_;
  unsigned long long checksum = 0;
  long long bytes = 0;
  int failures = 0;

  void on(xio::i::op::Read, int result, xio::Request& request) override {
    const std::vector<char>& data = buffers_[request.id()];
    for (int n = 0; n < result; ++n) checksum = checksum * 31 + static_cast<unsigned char>(data[n]);
    bytes += result;
    next(request);
  }
  void on(xio::i::op::Write, int, xio::Request&) override {}
  void on(xio::AIOCompletionException& e, xio::Request&) override { fail(e); }
  void on(xio::AIORequestException& e, xio::Request&) override { fail(e); }
  void on(xio::AIOCancellationException& e, xio::Request&) override { fail(e); }
  void on(xio::ReadException& e, xio::Request&) override { fail(e); }
  void on(xio::WriteException& e, xio::Request&) override { fail(e); }

 private:
  void fail(const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    ++failures;
  }

  long long size_;
  long long offset_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "/proc/self/exe";
  const int depth = argc > 2 ? std::atoi(argv[2]) : 8;
  try {
    const std::string file = path == "/proc/self/exe" ? std::string(argv[0]) : path;
    const long long size = static_cast<long long>(fs::Stat(file).size());
    xio::Endpoint endpoint = xio::Endpoint::open(file, xio::fopen::Spec());  // read-only

    xio::mux::Spec spec;
    spec.set<xio::i::mux::type::Async>();
    xio::Dispatcher dispatcher = xio::Dispatcher::create(spec, depth);
    Reader reader(size);
    reader.buffers_.assign(static_cast<size_t>(depth), std::vector<char>(kBlock));
    std::vector<std::unique_ptr<xio::Request>> requests;
    for (int n = 0; n < depth; ++n) {
      requests.emplace_back(dispatcher.newRequestFor(&reader, endpoint));
      requests.back()->setID(static_cast<unsigned int>(n));
      reader.next(*requests.back());
    }
    dispatcher.wait();  // until every request has completed and none was resubmitted

    std::cout << file << ": " << reader.bytes << " of " << size << " bytes with " << depth
              << " requests in flight, checksum " << std::hex << reader.checksum << "\n";
    return reader.failures == 0 && reader.bytes == size ? 0 : 1;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
