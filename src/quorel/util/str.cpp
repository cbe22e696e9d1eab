// The text functions and the instantiations the library offers.
#include <quorel/util/str.inl>

namespace quorel {
namespace util {
namespace str {

template const std::string from<unsigned char>(unsigned char, std::ios_base::fmtflags, bool);
template const std::string from<short>(short, std::ios_base::fmtflags, bool);
template const std::string from<unsigned short>(unsigned short, std::ios_base::fmtflags, bool);
template const std::string from<int>(int, std::ios_base::fmtflags, bool);
template const std::string from<unsigned int>(unsigned int, std::ios_base::fmtflags, bool);
template const std::string from<long long>(long long, std::ios_base::fmtflags, bool);
template const std::string from<unsigned long long>(unsigned long long, std::ios_base::fmtflags, bool);
template const std::string from<double>(double, std::ios_base::fmtflags, bool);

template void to<unsigned char>(unsigned char&, const std::string&, std::ios_base::fmtflags);
template void to<unsigned short>(unsigned short&, const std::string&, std::ios_base::fmtflags);
template void to<unsigned int>(unsigned int&, const std::string&, std::ios_base::fmtflags);

template const char* hexFrom<char>(char, char*, int, bool);
template const char* hexFrom<unsigned char>(unsigned char, char*, int, bool);
template const char* hexFrom<unsigned int>(unsigned int, char*, int, bool);
template const char* hexFrom<void*>(void*, char*, int, bool);
template std::string hexFrom<char>(char, bool);
template std::string hexFrom<unsigned char>(unsigned char, bool);
template std::string hexFrom<unsigned int>(unsigned int, bool);
template std::string hexFrom<void*>(void*, bool);

}  // namespace str
}  // namespace util
}  // namespace quorel
