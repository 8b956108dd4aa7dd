#include "cli/ParamText.h"

#include <math.h>
#include <stdint.h>
#include <string.h>

#include <charconv>
#include <optional>

#include "cli/EpgBlock.h"
#include "cli/Text.h"
#include "kpl/rpc/RpcParam.h"

namespace kpl::cli {

namespace {

using namespace kpl::rpc;

template <class T>
std::optional<std::string> IntegerText(const std::string& bytes) {
    T value{};
    if (bytes.size() != sizeof(value)) {
        return std::nullopt;
    }
    memcpy(&value, bytes.data(), sizeof(value));
    return std::to_string(value);
}

// The fewest digits that read back as the same number.
template <class T>
std::optional<std::string> RealText(const std::string& bytes) {
    T value{};
    if (bytes.size() != sizeof(value)) {
        return std::nullopt;
    }
    memcpy(&value, bytes.data(), sizeof(value));
    if (isnan(value)) {
        return "nan";
    }
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof(text), value);
    return error == std::errc() ? std::string(text, end) : "";
}

std::optional<std::string> BoolText(const std::string& bytes) {
    if (bytes.size() != 1) {
        return std::nullopt;
    }
    return bytes[0] != 0 ? "true" : "false";
}

// A scalar's value; nothing for another type, or a length that is not the type's.
std::optional<std::string> ScalarText(const Param& param) {
    switch (param.code) {
        case RPC_PARAM_BOOL:
            return BoolText(param.bytes);
        case RPC_PARAM_INT:
        case RPC_PARAM_LONG:
            return IntegerText<int32_t>(param.bytes);
        case RPC_PARAM_CHAR:
            return IntegerText<int8_t>(param.bytes);  // also where `char` has no sign
        case RPC_PARAM_UCHAR:
            return IntegerText<uint8_t>(param.bytes);
        case RPC_PARAM_LONGLONG:
            return IntegerText<int64_t>(param.bytes);
        case RPC_PARAM_ULONGLONG:
            return IntegerText<uint64_t>(param.bytes);
        case RPC_PARAM_SHORT:
            return IntegerText<int16_t>(param.bytes);
        case RPC_PARAM_USHORT:
            return IntegerText<uint16_t>(param.bytes);
        case RPC_PARAM_UINT:
        case RPC_PARAM_ULONG:
            return IntegerText<uint32_t>(param.bytes);
        case RPC_PARAM_DOUBLE:
            return RealText<double>(param.bytes);
        case RPC_PARAM_FLOAT:
            return RealText<float>(param.bytes);
        default:
            return std::nullopt;
    }
}

// The characters of a string parameter; nothing if they do not end with its only NUL.
std::optional<std::string> Characters(const Param& param) {
    const size_t end = param.bytes.find('\0');
    if (param.code != RPC_PARAM_STRING || end == std::string::npos ||
        end + 1 != param.bytes.size()) {
        return std::nullopt;
    }
    return param.bytes.substr(0, end);
}

std::string BytesText(const std::string& bytes) {
    return std::to_string(bytes.size()) + " bytes: " + Hex(bytes);
}

template <class Count>
std::string Words(const uint32_t* words, Count count, const char* separator) {
    std::string text;
    for (Count i = 0; i < count; ++i) {
        text += (i > 0 ? separator : "") + std::to_string(words[i]);
    }
    return text;
}

std::string RecordLine(const EpgRecord& record) {
    std::string text = " {" + Words(record.head, 2, " ");
    for (const std::optional<std::string>& characters : record.text) {
        text += characters ? " " + Quoted(*characters) : " null";
    }
    return text + " " + Words(record.tail, 6, " ") + "}";
}

std::string StructLine(const std::string& bytes) {
    const std::optional<int> count = ReadArrayCount(bytes);
    if (count) {
        return "array of " + std::to_string(*count) + ", " + BytesText(bytes.substr(8));
    }
    const auto records = ReadEpgBlock(bytes);
    if (!records) {
        return BytesText(bytes);
    }
    std::string text = "list of " + std::to_string(records->size()) + ":";
    for (const EpgRecord& record : *records) {
        text += RecordLine(record);
    }
    return text;
}

std::string RecordJson(const EpgRecord& record) {
    std::string text = "{\"head\":[" + Words(record.head, 2, ",") + "],\"text\":[";
    for (const std::optional<std::string>& characters : record.text) {
        text += (&characters != record.text ? "," : "") + (characters ? Json(*characters) : "null");
    }
    return text + "],\"tail\":[" + Words(record.tail, 6, ",") + "]}";
}

std::string StructJson(const std::string& bytes) {
    const std::optional<int> count = ReadArrayCount(bytes);
    if (count) {
        return ",\"elements\":" + std::to_string(*count);
    }
    const auto records = ReadEpgBlock(bytes);
    if (!records) {
        return "";
    }
    std::string text;
    for (const EpgRecord& record : *records) {
        text += (text.empty() ? "" : ",") + RecordJson(record);
    }
    return ",\"records\":[" + text + "]";
}

std::string ScalarJson(const std::string& text) {
    const bool isNumber = text.find_first_of("0123456789") != std::string::npos;
    return isNumber || text == "true" || text == "false" ? text : '"' + text + '"';
}

std::string CallbackWords(const std::string& bytes) {
    return Hex(bytes.substr(0, 4)) + " " + Hex(bytes.substr(4));
}

}  // namespace

std::string TypeName(int code) {
    switch (code) {
        case RPC_PARAM_BOOL:
            return "bool";
        case RPC_PARAM_INT:
            return "int";
        case RPC_PARAM_LONG:
            return "long";
        case RPC_PARAM_CHAR:
            return "char";
        case RPC_PARAM_UCHAR:
            return "uchar";
        case RPC_PARAM_LONGLONG:
            return "longlong";
        case RPC_PARAM_ULONGLONG:
            return "ulonglong";
        case RPC_PARAM_SHORT:
            return "short";
        case RPC_PARAM_USHORT:
            return "ushort";
        case RPC_PARAM_UINT:
            return "uint";
        case RPC_PARAM_ULONG:
            return "ulong";
        case RPC_PARAM_DOUBLE:
            return "double";
        case RPC_PARAM_FLOAT:
            return "float";
        case RPC_PARAM_STRING:
            return "str";
        case RPC_PARAM_STRUCT:
            return "struct";
        case RPC_PARAM_CALLBACK:
            return "callback";
        default:
            return "code " + std::to_string(code);
    }
}

std::string ParamLine(const Param& param) {
    const std::string type = TypeName(param.code) + " ";
    if (const std::optional<std::string> scalar = ScalarText(param)) {
        return type + *scalar;
    }
    if (const std::optional<std::string> characters = Characters(param)) {
        return type + Quoted(*characters);
    }
    if (param.code == RPC_PARAM_STRUCT) {
        return type + StructLine(param.bytes);
    }
    if (param.code == RPC_PARAM_CALLBACK && param.bytes.size() == 8) {
        return type + CallbackWords(param.bytes);
    }
    return type + BytesText(param.bytes);
}

std::string ParamJson(const Param& param) {
    const std::string type = "{\"type\":\"" + TypeName(param.code) + "\",";
    if (const std::optional<std::string> scalar = ScalarText(param)) {
        return type + "\"value\":" + ScalarJson(*scalar) + "}";
    }
    const std::optional<std::string> characters = Characters(param);
    if (characters && IsUtf8(*characters)) {
        return type + "\"value\":" + Json(*characters) + "}";
    }
    const bool isStruct = param.code == RPC_PARAM_STRUCT;
    return type + "\"hex\":\"" + Hex(param.bytes) + "\"" +
           (isStruct ? StructJson(param.bytes) : "") + "}";
}

std::string ParamsJson(const Params& params) {
    std::string text;
    for (const Param& param : params) {
        text += (text.empty() ? "" : ",") + ParamJson(param);
    }
    return "[" + text + "]";
}

}  // namespace kpl::cli
