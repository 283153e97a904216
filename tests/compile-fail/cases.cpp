#include <Oxil.h>

#include "OxLog.h"

using namespace oxil;

#if POINTER_IS_NO_BOOLEAN
Variant pointer(int* number)
{
    return number;
}
#endif

#if BUFFERS_ARE_NOT_COPIED
void copy(const SerializedData& data)
{
    SerializedData other(data);
}
#endif

#if SERIALIZER_HAS_NO_OBJECTS
Serializer serializer;
#endif

#if LOG_ARGUMENTS_FIT_THE_FORMAT
void log(const char* text)
{
    OX_ERROR("Invalid parameter (%d).", text);
}
#else
void log(int number)
{
    OX_ERROR("Invalid parameter (%d).", number);
}
#endif
