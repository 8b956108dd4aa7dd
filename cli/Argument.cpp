#include "cli/Argument.h"

#include <ctype.h>
#include <limits.h>
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <limits>

#include "cli/Limits.h"
#include "cli/ReadFile.h"
#include "cli/Text.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::cli {

namespace {

using namespace kpl::rpc;

template <class T>
std::string BytesOf(T value) {
    std::string bytes(sizeof(value), '\0');
    memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

template <class T>
std::optional<std::string> Integer(const std::string& text) {
    using Limits = std::numeric_limits<T>;
    if constexpr (Limits::is_signed) {
        const auto value = ParseInteger(text, Limits::min(), Limits::max());
        return value ? std::optional(BytesOf(static_cast<T>(*value))) : std::nullopt;
    } else {
        const auto value = ParseUnsigned(text, Limits::max());
        return value ? std::optional(BytesOf(static_cast<T>(*value))) : std::nullopt;
    }
}

template <class T>
std::optional<std::string> Character(const std::string& text) {
    if (text.size() == 3 && text.front() == '\'' && text.back() == '\'') {
        return text.substr(1, 1);
    }
    return Integer<T>(text);
}

std::optional<std::string> Bool(const std::string& text) {
    if (text == "true" || text == "1") {
        return std::string(1, '\1');
    }
    if (text == "false" || text == "0") {
        return std::string(1, '\0');
    }
    return std::nullopt;
}

template <class T>
T ParseReal(const char* text, char** end) {
    if constexpr (sizeof(T) == sizeof(float)) {
        return strtof(text, end);
    } else {
        return strtod(text, end);
    }
}

// A number too large for the type is refused: infinity has to be asked for.
template <class T>
std::optional<std::string> Real(const std::string& text) {
    char* end = nullptr;
    const bool begins = !text.empty() && isspace(static_cast<unsigned char>(text[0])) == 0;
    const T value = ParseReal<T>(text.c_str(), &end);
    const bool tooLarge = isinf(value) && text.find_first_of("0123456789") != std::string::npos;
    if (!begins || *end != '\0' || tooLarge) {
        return std::nullopt;
    }
    return BytesOf(value);
}

std::optional<std::string> String(const std::string& text) {
    return std::string(text.c_str(), text.size() + 1);
}

struct ScalarType {
    const char* name;
    RpcParamType code;
    std::optional<std::string> (*parse)(const std::string& text);
};

constexpr ScalarType kTypes[] = {
    {"bool", RPC_PARAM_BOOL, Bool},
    {"int", RPC_PARAM_INT, Integer<int32_t>},
    {"long", RPC_PARAM_LONG, Integer<int32_t>},
    {"char", RPC_PARAM_CHAR, Character<int8_t>},
    {"uchar", RPC_PARAM_UCHAR, Character<uint8_t>},
    {"longlong", RPC_PARAM_LONGLONG, Integer<int64_t>},
    {"ulonglong", RPC_PARAM_ULONGLONG, Integer<uint64_t>},
    {"short", RPC_PARAM_SHORT, Integer<int16_t>},
    {"ushort", RPC_PARAM_USHORT, Integer<uint16_t>},
    {"uint", RPC_PARAM_UINT, Integer<uint32_t>},
    {"ulong", RPC_PARAM_ULONG, Integer<uint32_t>},
    {"double", RPC_PARAM_DOUBLE, Real<double>},
    {"float", RPC_PARAM_FLOAT, Real<float>},
    {"str", RPC_PARAM_STRING, String},
};

// The N of file/N, 1 for file; 0 for anything else.
size_t ElementSize(const std::string& type) {
    if (type == "file") {
        return 1;
    }
    if (type.compare(0, 5, "file/") != 0) {
        return 0;
    }
    return static_cast<size_t>(ParseUnsigned(type.substr(5), kMaxCommandSize).value_or(0));
}

// Element count, size, elements: the form of an array.
std::optional<Param> ReadArray(size_t elementSize, const std::string& path, std::string* fault) {
    const std::optional<std::string> elements = ReadSmallFile(path, kMaxCommandSize, fault);
    if (!elements) {
        return std::nullopt;
    }
    if (elements->size() % elementSize != 0) {
        *fault = "'" + path + "' has " + std::to_string(elements->size()) +
                 " bytes, which is no whole number of elements of " + std::to_string(elementSize);
        return std::nullopt;
    }
    const auto count = static_cast<uint32_t>(elements->size() / elementSize);
    const auto size = static_cast<uint32_t>(elements->size());
    return Param{RPC_PARAM_STRUCT, BytesOf(count) + BytesOf(size) + *elements};
}

}  // namespace

std::optional<Param> ParseArgument(const std::string& text, std::string* fault) {
    const size_t colon = text.find(':');
    const std::string type = text.substr(0, colon);
    const std::string value = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (colon == std::string::npos) {
        *fault = "'" + text + "' is no argument: it has no type, as in str:" + text;
        return std::nullopt;
    }
    if (const size_t elementSize = ElementSize(type)) {
        return ReadArray(elementSize, value, fault);
    }
    for (const ScalarType& known : kTypes) {
        if (type != known.name) {
            continue;
        }
        std::optional<std::string> bytes = known.parse(value);
        if (!bytes) {
            *fault = "'";
            fault->append(value).append("' is no ").append(type);
            fault->append(", or does not fit into one");
            return std::nullopt;
        }
        return Param{known.code, std::move(*bytes)};
    }
    *fault = "'" + type + "' is no type of an argument; `kpl-rpc help call` lists them";
    return std::nullopt;
}

}  // namespace kpl::cli
