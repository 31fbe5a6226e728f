#include "base/Uuid.h"

#include <uuid.h>

namespace nulo {

std::string randomUuid() {
    uuid_t uuid;
    char text[UUID_STR_LEN];
    uuid_generate_random(uuid);
    uuid_unparse_upper(uuid, text);
    return text;
}

}  // namespace nulo
