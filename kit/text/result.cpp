#include <kit/text/result.h>

#include <cstdio>
#include <cstdlib>

namespace TalVcs::Kit {

ErrorException::ErrorException(Error error)
    : m_error(std::move(error)), m_line(Describe(m_error)) {}
ErrorException::ErrorException(const ErrorException& other) = default;
ErrorException& ErrorException::operator=(const ErrorException& other) = default;
ErrorException::~ErrorException() = default;

const char* ErrorException::what() const noexcept { return m_line.c_str(); }

void ThrowError(Error error) {
#ifdef __cpp_exceptions
  throw ErrorException(std::move(error));
#else
  std::fprintf(stderr, "%s\n", Describe(error).c_str());
  std::abort();
#endif
}

}  // namespace TalVcs::Kit
