#pragma once

#include <dds/dds.h>

#include <stdexcept>
#include <string>

#define DDS_LAYER_API __attribute__((visibility("default")))

namespace dds::core {

/// Base of everything this layer throws. what(): the operation that failed, then libddsc's own
/// text. Crosses shared libraries, hence the visibility of these classes.
class DDS_LAYER_API Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class DDS_LAYER_API Error : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API AlreadyClosedError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API IllegalOperationError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API ImmutablePolicyError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API InconsistentPolicyError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API InvalidArgumentError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API NotEnabledError : public Exception {
 public:
  using Exception::Exception;
};
/// An operation on a reference that refers to nothing.
class DDS_LAYER_API NullReferenceError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API OutOfResourcesError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API PreconditionNotMetError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API TimeoutError : public Exception {
 public:
  using Exception::Exception;
};
class DDS_LAYER_API UnsupportedError : public Exception {
 public:
  using Exception::Exception;
};

namespace detail {

/// Throws the exception that belongs to `code`, a negative result of libddsc.
[[noreturn]] inline void fail(dds_return_t code, const std::string& operation) {
  const std::string text = operation + ": " + dds_strretcode(code);
  switch (code) {
    case DDS_RETCODE_UNSUPPORTED:
      throw UnsupportedError(text);
    case DDS_RETCODE_BAD_PARAMETER:
      throw InvalidArgumentError(text);
    case DDS_RETCODE_PRECONDITION_NOT_MET:
      throw PreconditionNotMetError(text);
    case DDS_RETCODE_OUT_OF_RESOURCES:
      throw OutOfResourcesError(text);
    case DDS_RETCODE_NOT_ENABLED:
      throw NotEnabledError(text);
    case DDS_RETCODE_IMMUTABLE_POLICY:
      throw ImmutablePolicyError(text);
    case DDS_RETCODE_INCONSISTENT_POLICY:
      throw InconsistentPolicyError(text);
    case DDS_RETCODE_ALREADY_DELETED:
      throw AlreadyClosedError(text);
    case DDS_RETCODE_TIMEOUT:
      throw TimeoutError(text);
    case DDS_RETCODE_ILLEGAL_OPERATION:
      throw IllegalOperationError(text);
    default:
      throw Error(text);
  }
}

/// Hands on a result of libddsc that isn't negative, and throws for one that is.
inline dds_return_t check(dds_return_t result, const char* operation) {
  if (result < 0) fail(result, operation);
  return result;
}

}  // namespace detail
}  // namespace dds::core
