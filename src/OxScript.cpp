#include "OxScript.h"

#include <cstdint>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxWatch.h"

namespace oxil {

using internal::Watch;

Script::Script() = default;

Script::Script(const std::string& filePath) : __filePath(filePath) {}

Script::~Script() = default;

int Script::onMethodCalling(const std::string&)
{
    return 0;
}

int Script::onMethodCalled(const std::string&)
{
    return 0;
}

int Script::onMethodParameterAdded(const std::string&)
{
    return 0;
}

int Script::onMethodParameterAdded(bool)
{
    return 0;
}

int Script::onMethodParameterAdded(int)
{
    return 0;
}

int Script::onMethodParameterAdded(float)
{
    return 0;
}

int Script::onGetReturnValue(bool&) const
{
    return 0;
}

int Script::onGetReturnValue(int&) const
{
    return 0;
}

int Script::onGetReturnValue(float&) const
{
    return 0;
}

int Script::onGetReturnValue(std::string&) const
{
    return 0;
}

void Script::onReturnValueEvaluateBegin() {}

void Script::onReturnValueEvaluateEnd() {}

int Script::load()
{
    return onLoading();
}

int Script::callMethod(const std::string& methodName, int returnCount)
{
    if (methodName.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    if (returnCount < 0) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    __setCall(methodName, returnCount, 0);

    // Each hook may lead to the end of this script, and must not be followed by another one then.
    const Watch watch(*this);
    if (onMethodCalling(__methodName) != 0 || !watch.isIntact()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    if (onMethodCalled(__methodName) != 0 || !watch.isIntact()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

int Script::callMethod(const std::string& methodName)
{
    if (methodName.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    const int r = callMethod(methodName, 0);
    if (r != STATUS_SUCCESS) {
        OX_ERROR("(%d)", r);
    }
    return r;
}

int Script::callMethod(const std::string& methodName, std::initializer_list<Parameter> parameters,
                       std::initializer_list<Result> results)
{
    if (methodName.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    const int returnCount = static_cast<int>(results.size());
    int parameterCount = 0;
    __setCall(methodName, returnCount, parameterCount);

    // Any hook may lead to other calls, from a finalizer that happens to run there for one, which
    // leave their own bookkeeping behind, and to the end of this script: false.
    const Watch watch(*this);
    std::uint64_t known = watch.countBegun();
    const auto resume = [&] {
        if (!watch.isIntact()) {
            return false;
        }
        if (watch.countBegun() != known) {
            __setCall(methodName, returnCount, parameterCount);
            known = watch.countBegun();
        }
        __parameterCount = parameterCount;
        return true;
    };

    if (onMethodCalling(__methodName) != 0 || !resume()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    for (const Parameter& parameter : parameters) {
        if (parameter.addTo(*this) != 0) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_STATE;
        }
        ++parameterCount;
        if (!resume()) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_STATE;
        }
    }
    const int called = onMethodCalled(__methodName);
    if (!resume() || called != 0) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    if (returnCount == 0) {
        return STATUS_SUCCESS;
    }

    int read = 0;
    onReturnValueEvaluateBegin();
    try {
        for (const Result& result : results) {
            read = resume() ? result.getFrom(*this) : STATUS_INVALID_STATE;
            if (read != 0) {
                break;
            }
        }
    } catch (...) {
        // A text that there is no memory for: the results are taken back all the same.
        if (watch.isIntact()) {
            onReturnValueEvaluateEnd();
        }
        throw;
    }
    if (resume()) {
        onReturnValueEvaluateEnd();
    }
    if (read != 0 || !watch.isIntact()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

std::string Script::getFilePath() const
{
    return __filePath;
}

std::string Script::getMethodName() const
{
    return __methodName;
}

int Script::getReturnCount() const
{
    return __returnCount;
}

int Script::getParameterCount() const
{
    return __parameterCount;
}

void Script::__setCall(const std::string& methodName, int returnCount, int parameterCount)
{
    __parameterCount = parameterCount;
    if (__methodName != methodName) {
        __methodName = methodName;
    }
    __returnCount = returnCount;
}

int Script::Parameter::addTo(Script& script) const
{
    switch (__kind) {
        case Kind::BOOL:
            return script.onMethodParameterAdded(__bool);
        case Kind::INT:
            return script.onMethodParameterAdded(__int);
        case Kind::FLOAT:
            return script.onMethodParameterAdded(__float);
        case Kind::TEXT:
            break;
    }
    return script.onMethodParameterAdded(*__text);
}

int Script::Result::getFrom(const Script& script) const
{
    switch (__kind) {
        case Kind::BOOL:
            return script.onGetReturnValue(*__bool);
        case Kind::INT:
            return script.onGetReturnValue(*__int);
        case Kind::FLOAT:
            return script.onGetReturnValue(*__float);
        case Kind::TEXT:
            break;
    }
    return script.onGetReturnValue(*__text);
}

}  // namespace oxil
