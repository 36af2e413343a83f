#include <kit/text.h>
#include <stores/zip/internal/zip_error.h>

#include <cerrno>
#include <new>

namespace TalVcs::Kit::Zip {
namespace {

const char* NameOf(Task task) {
  switch (task) {
    case Task::Open:
      return "open";
    case Task::Read:
      return "read";
    case Task::Save:
      break;
  }
  return "save";
}

std::string TextOf(const std::filesystem::path& path) {
  const auto text = path.u8string();
  // The bytes of a name need not be UTF-8; the texts of an error are.
  return ToUtf8(ToWide(std::string(text.begin(), text.end())));
}

struct Reason {
  ErrorCode code;
  const char* text;
};

Reason ReasonOf(const std::error_code& error) {
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    return {ErrorCode::NotFound, "there is no such file"};
  }
  if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted ||
      error == std::errc::read_only_file_system) {
    return {ErrorCode::Denied, "no permission"};
  }
  if (error == std::errc::no_space_on_device || error == std::errc::file_too_large ||
      error == std::error_code(EDQUOT, std::generic_category())) {
    return {ErrorCode::Full, "no space left"};
  }
  if (error == std::errc::resource_unavailable_try_again) {
    return {ErrorCode::Busy, "another program is saving it"};
  }
  if (error == std::errc::is_a_directory || error == std::errc::invalid_argument) {
    return {ErrorCode::Unsupported, "it is not a file"};
  }
  return {ErrorCode::Unavailable, "the system failed to read or write it"};
}

Reason ReasonOf(zip_error_t* error) {
  switch (zip_error_code_zip(error)) {
    case ZIP_ER_COMPNOTSUPP:
      return {ErrorCode::Unsupported, "it is compressed by a method that isn't known"};
    case ZIP_ER_ENCRNOTSUPP:
    case ZIP_ER_NOPASSWD:
    case ZIP_ER_WRONGPASSWD:
      return {ErrorCode::Unsupported, "it is encrypted"};
    case ZIP_ER_NOZIP:
      return {ErrorCode::Damaged, "it isn't a zip archive, or its end is missing"};
    case ZIP_ER_CRC:
      return {ErrorCode::Damaged, "its bytes don't fit their checksum"};
    default:
      return {ErrorCode::Damaged, "its content is damaged"};
  }
}

}  // namespace

Error MakeError(ErrorCode code, Task task, const std::filesystem::path& path,
                const std::string& reason) {
  Error error;
  error.code = code;
  error.subject = TextOf(path);
  error.message = std::string("cannot ") + NameOf(task) + " \"" + error.subject + "\": " + reason;
  if (task == Task::Save) error.unchanged = "the previous version is unchanged";
  return error;
}

Error SystemFailure(Task task, const std::filesystem::path& path, const std::error_code& error) {
  const Reason reason = ReasonOf(error);
  Error failure = MakeError(reason.code, task, path, reason.text);
  failure.cause = error.message();
  return failure;
}

Error LibraryFailure(Task task, const std::filesystem::path& path, zip_error_t* error) {
  if (zip_error_code_zip(error) == ZIP_ER_MEMORY) throw std::bad_alloc();
  // The sources seek without a call of the system. An archive that names a place that no file has
  // fails with the error of a file that is too large.
  const bool is_place = zip_error_code_zip(error) == ZIP_ER_SEEK;
  if (!is_place && zip_error_system_type(error) == ZIP_ET_SYS) {
    return SystemFailure(task, path,
                         std::error_code(zip_error_code_system(error), std::generic_category()));
  }
  const Reason reason = ReasonOf(error);
  Error failure = MakeError(reason.code, task, path, reason.text);
  failure.cause = zip_error_strerror(error);
  return failure;
}

void SetSystemError(zip_error_t& target, int code, const std::error_code& error) {
  zip_error_set(&target, code, error.value());
}

}  // namespace TalVcs::Kit::Zip
