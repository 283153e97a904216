#define OXIL_REFUSE_LONG
#include <Oxil.h>

#include "OxLog.h"

using namespace oxil;

#if POINTER_IS_NO_BOOLEAN
Variant pointer(int* number)
{
    return number;
}
#endif

Variant number(long long number)
{
    return number;
}

#if LONG_IS_NO_VALUE
Variant number(long number)
{
    return number;
}
#endif

#if UNSIGNED_LONG_IS_NO_VALUE
int add(KeyValues& record, unsigned long number)
{
    return record.add("number", number);
}
#endif

#if BUFFERS_ARE_NOT_COPIED
void copy(const SerializedData& data)
{
    SerializedData other(data);
}
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

#if SCRIPT_RESULT_COUNT_IS_NO_BOOLEAN
int call(Script& script)
{
    return script.callMethod("f", true);
}
#endif

#if SCRIPT_RESULT_COUNT_IS_NO_FLOATING_POINT
int call(Script& script)
{
    return script.callMethod("f", 2.5);
}
#endif

#if SCRIPT_RESULT_COUNT_IS_NO_TEXT
int call(Script& script)
{
    return script.callMethod("f", "text");
}
#endif

#if SCRIPT_RESULT_COUNT_IS_NO_POINTER
int call(Script& script, int* number)
{
    return script.callMethod("f", number);
}
#endif

// What counts results goes on compiling.
int count(Script& script, short few, unsigned int many)
{
    enum { SOME = 3 };
    return script.callMethod("f", 1) + script.callMethod("f", SOME) + script.callMethod("f", few) +
           script.callMethod("f", 'c') + script.callMethod("f", many) +
           script.callMethod("f", std::tie());
}

#if BOUND_PARAMETERS_HAVE_LUA_TYPES
int bind(LuaApi& api)
{
    return api.bind("f", [](long) {});
}
#endif

#if BOUND_RESULTS_HAVE_LUA_TYPES
int bind(LuaApi& api)
{
    return api.bind("f", [] { return 'c'; });
}
#endif

#if BOUND_PARAMETERS_ARE_NOT_WRITTEN_TO
int bind(LuaApi& api)
{
    return api.bind("f", [](std::string& text) { text.clear(); });
}
#endif

#if TEXTS_OF_LUA_ARE_NOT_KEPT
bool call(LuaScript& script)
{
    return bool(script.call<std::string_view>("f"));
}
#endif

#if ANSWERS_ARE_LOOKED_AT
void call(LuaScript& script)
{
    script.call("f");
}
#endif

#if LISTS_HAVE_NO_GAPS
bool call(LuaScript& script)
{
    return bool(script.call("f", std::vector<std::optional<int>>()));
}
#endif

#if LISTS_HAVE_A_LIMIT_OF_DEPTH
bool call(LuaScript& script)
{
    using Deep = std::vector<std::vector<std::vector<std::vector<int>>>>;
    return script.call<Deep>("f") && script.call<std::vector<Deep>>("f");
}
#endif

#if LOADED_DOCUMENT_IS_NOT_IGNORED
void load(Xml& xml)
{
    xml.load();
}
#endif

#if RESULTS_OF_STYLESHEETS_ARE_OWNED
void transform(XmlStyleSheet& styleSheet, XmlDocument& document)
{
    styleSheet.apply(&document);
}
#endif

#if VALIDATION_IS_LOOKED_AT
void receive(const SerializationInfo& info)
{
    SerializedData::validate(info, 1);
}
#endif

#if VALIDATION_WITH_LIMITS_IS_LOOKED_AT
void receive(const SerializationInfo& info)
{
    SerializedData::validate(info, 1, {1, 1});
}
#endif

#if VALIDATION_OF_A_PAYLOAD_IS_LOOKED_AT
void send(const KeyValues& record)
{
    Serializer::validate(record);
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
