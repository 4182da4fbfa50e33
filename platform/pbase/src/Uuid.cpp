#include <uuid/uuid.h>

#include <algorithm>

#include "pbase/Utils.h"

namespace Pexal::Utils {

std::string createRandomUUID() {
  uuid_t bytes;
  char text[UUID_STR_LEN];
  uuid_generate_random(bytes);
  uuid_unparse_lower(bytes, text);
  return text;
}

std::array<std::uint8_t, 16> createRandomUUIDBytes() {
  std::array<std::uint8_t, 16> bytes{};
  uuid_generate_random(bytes.data());
  return bytes;
}

}  // namespace Pexal::Utils
