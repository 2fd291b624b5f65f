#include "support/uuid.h"

#include <uuid/uuid.h>

namespace ac {

std::string newUUIDString() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[37];
  uuid_unparse_upper(uuid, text);
  return text;
}

}  // namespace ac
