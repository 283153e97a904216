#include "OxVersion.h"

namespace oxil {

const char* getVersion() noexcept
{
    return OXIL_VERSION_TEXT;
}

}  // namespace oxil
