// Trace messages. A source file defines its own message GUID,
//
//     namespace { constexpr GUID kTraceMessageGuid = {...}; }
//
// and writes messages with the macros below; the message number is the line.
// A disabled class costs one relaxed load; the arguments are not evaluated.
//
// Arguments travel to TraceMessage as (pointer, size) pairs: 32-bit and
// smaller integers as 4 bytes, floating point widened to an 8-byte double, UTF-16 strings with their terminator ("NULL" for an absent
// string, "<NULL>" for an empty one) and TraceBytes as they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tracing/trace_provider.h"

// Raw bytes in a message, e.g. an input report.
struct TraceBytes {
    const void* data;
    SIZE_T size;
};

namespace trace_detail {

inline constexpr ULONG kMessageFlags = TRACE_MESSAGE_SEQUENCE | TRACE_MESSAGE_GUID |
                                       TRACE_MESSAGE_TIMESTAMP | TRACE_MESSAGE_SYSTEMINFO;
static_assert(kMessageFlags == 0x2B);

// One argument, held in the form it is written in. 64-bit integers have no
// form: a reader tells a double from them only by size.
template <class T, class Enable = void>
struct Field;

template <class T>
struct Field<T, std::enable_if_t<(std::is_integral_v<T> || std::is_enum_v<T>) && sizeof(T) <= 4>> {
    explicit Field(T value) : stored(static_cast<std::uint32_t>(value)) {}
    const void* Data() const { return &stored; }
    SIZE_T Size() const { return sizeof(stored); }
    std::uint32_t stored;
};

template <class T>
struct Field<T, std::enable_if_t<std::is_floating_point_v<T>>> {
    explicit Field(T value) : stored(static_cast<double>(value)) {}
    const void* Data() const { return &stored; }
    SIZE_T Size() const { return sizeof(stored); }
    double stored;
};

template <class T>
struct Field<T, std::enable_if_t<std::is_same_v<T, const WCHAR*> || std::is_same_v<T, WCHAR*>>> {
    explicit Field(const WCHAR* value)
    {
        if (value == nullptr)
            text = u"NULL";
        else if (value[0] == 0)
            text = u"<NULL>";
        else
            text = value;
        std::size_t length = 0;
        while (text[length] != 0)
            ++length;
        bytes = (length + 1) * sizeof(WCHAR);
    }
    const void* Data() const { return text; }
    SIZE_T Size() const { return bytes; }
    const WCHAR* text;
    SIZE_T bytes;
};

template <>
struct Field<TraceBytes> {
    explicit Field(TraceBytes value) : stored(value) {}
    const void* Data() const { return stored.data; }
    SIZE_T Size() const { return stored.size; }
    TraceBytes stored;
};

template <class T>
using FieldOf = Field<std::decay_t<T>>;

// The I-th vararg: even positions are data pointers, odd ones sizes.
template <std::size_t I, class Tuple>
auto PairElement(const Tuple& fields)
{
    if constexpr (I % 2 == 0)
        return std::get<I / 2>(fields).Data();
    else
        return std::get<I / 2>(fields).Size();
}

template <class Tuple, std::size_t... I>
void Emit(TRACEHANDLE logger, const GUID& messageGuid, USHORT number, const Tuple& fields,
          std::index_sequence<I...>)
{
    TraceMessage(logger, kMessageFlags, &messageGuid, number, PairElement<I>(fields)...,
                 static_cast<const void*>(nullptr));
}

template <class... Args>
void Write(const GUID& messageGuid, USHORT number, const Args&... args)
{
    const TRACEHANDLE logger = g_TraceControlBlock.LoggerHandle.load(std::memory_order_relaxed);
    const std::tuple<FieldOf<Args>...> fields{FieldOf<Args>(args)...};
    Emit(logger, messageGuid, number, fields, std::make_index_sequence<2 * sizeof...(Args)>{});
}

}  // namespace trace_detail

#define HIDSENSOR_TRACE(traceClass, ...)                                                          \
    do {                                                                                          \
        if (::TraceClassEnabled(traceClass))                                                      \
            ::trace_detail::Write(kTraceMessageGuid, static_cast<USHORT>(__LINE__) __VA_OPT__(, ) \
                                      __VA_ARGS__);                                               \
    } while (0)

// Entry of an operation, and its exit with the status it returns.
#define TRACE_ENTRY() HIDSENSOR_TRACE(TraceClass::EntryExit)
#define TRACE_EXIT(status) HIDSENSOR_TRACE(TraceClass::EntryExit, static_cast<NTSTATUS>(status))
// Report bytes and read completions.
#define TRACE_DATA(...) HIDSENSOR_TRACE(TraceClass::Data, __VA_ARGS__)
// Values read and set.
#define TRACE_INFO(...) HIDSENSOR_TRACE(TraceClass::Information, __VA_ARGS__)
// Tolerated anomalies.
#define TRACE_WARNING(...) HIDSENSOR_TRACE(TraceClass::Warning, __VA_ARGS__)
// Failure paths: the failing status first, then the sensor's friendly name when there is one.
#define TRACE_ERROR(status, ...) \
    HIDSENSOR_TRACE(TraceClass::Error, static_cast<NTSTATUS>(status) __VA_OPT__(, ) __VA_ARGS__)
