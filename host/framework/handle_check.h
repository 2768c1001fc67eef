// Turns a WDF handle into the framework object of the expected kind, reporting
// a violation (and giving null) for a null, dead, foreign or wrongly typed one.
#pragma once

#include <string>

#include "host/framework/object.h"
#include "host/framework/violations.h"

namespace host::framework {

template <class T>
T* Resolve(const void* handle, const char* function)
{
    Object* object = Object::FromHandle(handle);
    if (object == nullptr) {
        ReportViolation(std::string(function) + (handle == nullptr ? ": null handle" : ": dead or foreign handle"));
        return nullptr;
    }
    if (object->Kind() != T::kKind) {
        ReportViolation(std::string(function) + ": handle of a " + ObjectKindName(object->Kind()) +
                        " where a " + ObjectKindName(T::kKind) + " is expected");
        return nullptr;
    }
    return static_cast<T*>(object);
}

// The live object behind any framework handle, with the same reporting.
inline Object* ResolveAny(const void* handle, const char* function)
{
    Object* object = Object::FromHandle(handle);
    if (object == nullptr)
        ReportViolation(std::string(function) + (handle == nullptr ? ": null handle" : ": dead or foreign handle"));
    return object;
}

}  // namespace host::framework
