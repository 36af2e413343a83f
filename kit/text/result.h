#pragma once

#include <kit/export.h>
#include <kit/text/error.h>

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace TalVcs::Kit {

/// Carries the error of a result whose value was asked for although there is none.
class TALVCS_KIT_API ErrorException : public std::exception {
 public:
  /// Carries `error`.
  explicit ErrorException(Error error);
  ErrorException(const ErrorException& other);
  ErrorException& operator=(const ErrorException& other);
  ~ErrorException() override;

  /// Returns the line that `Describe` gives for the error.
  const char* what() const noexcept override;
  const Error& GetError() const noexcept { return m_error; }

 private:
  Error m_error;
  std::string m_line;
};

/// Throws an `ErrorException`; built without exceptions, prints the error and aborts.
[[noreturn]] TALVCS_KIT_API void ThrowError(Error error);

/// A value, or the error that stands in its place. A value type; never empty.
template <class T>
class [[nodiscard]] Result {
 public:
  /// A success with that value.
  Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
  /// A failure.
  Result(Error error) : m_content(std::in_place_index<1>, std::move(error)) {}

  /// True if there is a value.
  bool ok() const noexcept { return m_content.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  /// Return the value; an error is thrown as an `ErrorException`.
  T& value() & {
    Require();
    return *std::get_if<0>(&m_content);
  }
  const T& value() const& {
    Require();
    return *std::get_if<0>(&m_content);
  }
  /// By value, so that a loop over the value of a temporary result keeps it.
  T value() && {
    Require();
    return std::move(*std::get_if<0>(&m_content));
  }

  /// Return the value of a result that is known to have one.
  T& operator*() & noexcept { return *std::get_if<0>(&m_content); }
  const T& operator*() const& noexcept { return *std::get_if<0>(&m_content); }
  T&& operator*() && noexcept { return std::move(*std::get_if<0>(&m_content)); }
  T* operator->() noexcept { return std::get_if<0>(&m_content); }
  const T* operator->() const noexcept { return std::get_if<0>(&m_content); }

  /// Return the error of a result that is known to have one.
  const Error& error() const& noexcept { return *std::get_if<1>(&m_content); }
  Error&& error() && noexcept { return std::move(*std::get_if<1>(&m_content)); }

 private:
  void Require() const {
    if (!ok()) ThrowError(error());
  }

  std::variant<T, Error> m_content;
};

/// A result without a value: success, or an error.
class [[nodiscard]] Status {
 public:
  /// Success.
  Status() noexcept = default;
  /// A failure.
  Status(Error error) : m_error(std::move(error)) {}

  /// True for success.
  bool ok() const noexcept { return !m_error; }
  explicit operator bool() const noexcept { return ok(); }

  /// Does nothing on success; an error is thrown as an `ErrorException`.
  void value() const {
    if (m_error) ThrowError(*m_error);
  }

  /// Return the error of a status that is known to have one.
  const Error& error() const& noexcept { return *m_error; }
  Error&& error() && noexcept { return std::move(*m_error); }

 private:
  std::optional<Error> m_error;
};

}  // namespace TalVcs::Kit
