// A program built against the installed quorel package.
#include <cstdio>
#include <cstring>

#include <quorel/quorel.h>

int main() {
  try {
    quorel::util::AHandleTo<int, quorel::sal::AtomicCounter> empty(nullptr);
    return *empty.operator->();
  } catch (const quorel::NULLDereferenceException& e) {
    // Headers used from the install tree report the same source path.
    if (std::strcmp(e.file(), "util/AHandleTo.inl") != 0) {
      std::printf("unexpected file %s\n", e.file());
      return 1;
    }
  }
  std::printf("consumer ok: %lld us, %s\n", quorel::sal::time::micro::now(),
              quorel::sal::err::asString(quorel::sal::i::err::domain::kSystemCall).c_str());
  return 0;
}
