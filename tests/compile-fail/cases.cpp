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

#if SCRIPT_PARAMETERS_HAVE_LUA_TYPES
int call(Script& script)
{
    return script.callMethod("f", std::tie(), 1L);
}
#endif

#if SCRIPT_RESULTS_HAVE_LUA_TYPES
int call(Script& script, double& result)
{
    return script.callMethod("f", std::tie(result));
}
#endif

#if SCRIPT_POINTER_IS_NO_BOOLEAN
int call(Script& script, int* number)
{
    return script.callMethod("f", std::tie(), number);
}
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
