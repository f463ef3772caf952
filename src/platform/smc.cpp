#include "platform/smc.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "platform/console.h"
#include "platform/text.h"

namespace msp {
namespace {

constexpr std::uint8_t kReadKey = 5;
constexpr std::uint8_t kGetKeyAtIndex = 8;
constexpr std::uint8_t kGetKeyInfo = 9;

constexpr double kOverflow = 9223372036854775808.0;  // 2^63

std::uint32_t codeOf(std::string_view characters) {
  std::uint32_t code = 0;
  for (const char character : characters) code = code << 8U | static_cast<std::uint8_t>(character);
  return code;
}

std::string charactersOf(std::uint32_t code) {
  return {static_cast<char>(code >> 24U), static_cast<char>(code >> 16U), static_cast<char>(code >> 8U),
          static_cast<char>(code)};
}

std::uint32_t unsigned16(const SMCBytes& bytes) { return bytes[0] * 256U + bytes[1]; }

double integer8(const SMCBytes& bytes, double /*divisor*/) { return bytes[0]; }
double integer32(const SMCBytes& bytes, double /*divisor*/) {
  return unsigned16(bytes) * 65536.0 + bytes[2] * 256.0 + bytes[3];
}
/// The sign bit is not honoured, on purpose.
double fixedPoint(const SMCBytes& bytes, double divisor) { return unsigned16(bytes) / divisor; }
double floatingPoint(const SMCBytes& bytes, double /*divisor*/) {
  float value = 0;  // in the machine's own byte order
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}
/// The two bits of the fraction are dropped.
double fanSpeed(const SMCBytes& bytes, double /*divisor*/) { return unsigned16(bytes) >> 2U; }

struct Decoding {
  std::string_view type;
  double (*decode)(const SMCBytes& bytes, double divisor);
  double divisor = 1;
};

// The first match wins. Irregular on purpose: three types stand twice, and "sp669" is no type at all.
constexpr Decoding kDecodings[] = {
    {"ui8 ", integer8},          {"ui16", fixedPoint, 1},    {"ui32", integer32},
    {"sp1e", fixedPoint, 16384}, {"sp5b", fixedPoint, 4096}, {"sp5b", fixedPoint, 2048},
    {"sp5a", fixedPoint, 1024},  {"sp669", fixedPoint, 512}, {"sp78", fixedPoint, 256},
    {"sp96", fixedPoint, 128},   {"sp96", fixedPoint, 64},   {"spb4", fixedPoint, 32},
    {"spb4", fixedPoint, 16},    {"spf0", fixedPoint, 1},    {"flt ", floatingPoint},
    {"fpe2", fanSpeed},
};

/// Keys whose zero is a value; for all others it means that there is none.
bool mayBeZero(std::string_view key) { return key == "FS! " || key == "F0Md"; }

}  // namespace

std::optional<double> decodeSMCValue(std::string_view type, const SMCBytes& bytes) {
  const auto* const row = std::find_if(std::begin(kDecodings), std::end(kDecodings),
                                       [type](const Decoding& decoding) { return decoding.type == type; });
  if (row == std::end(kDecodings)) return std::nullopt;
  return row->decode(bytes, row->divisor);
}

SMC::SMC(std::unique_ptr<SMCConnection> connection) : connection_(std::move(connection)) {
  const auto opened = connection_->open();
  if (const auto* error = std::get_if<SMCConnection::OpenError>(&opened)) {
    printLine("Error " + error->call + "(): " + errorText(error->code));
    return;
  }
  conn_ = std::get<std::uint32_t>(opened);
}

SMC::~SMC() {
  if (conn_ == 0) return;
  const std::int32_t code = connection_->close(conn_);
  if (code != 0) printLine("error close smc connection: " + errorText(code));
}

std::optional<double> SMC::readKeyValue(std::string_view key) const {
  const auto read = readValue(key);
  if (const auto* code = std::get_if<std::int32_t>(&read)) {
    printLine("Error read(" + std::string(key) + "): " + errorText(*code));
    return std::nullopt;
  }
  const auto& value = std::get<Value>(read);
  if (value.dataSize == 0) return std::nullopt;
  const bool isZero =
      std::all_of(value.bytes.begin(), value.bytes.end(), [](auto byte) { return byte == 0; });
  if (isZero && !mayBeZero(key)) return std::nullopt;
  return decodeSMCValue(value.dataType, value.bytes);
}

std::vector<std::string> SMC::allKeys() const {
  const auto count = readKeyValue("#KEY");
  if (!count) {
    printLine("ERROR no keys count found");
    return {};
  }
  if (!std::isfinite(*count) || *count >= kOverflow || *count < -kOverflow)
    fatalError("The number of controller keys is no integer");
  std::vector<std::string> keys;
  // The index behind the last key is asked for too; that call fails.
  constexpr std::int64_t kLastIndex = std::numeric_limits<std::uint32_t>::max();  // the record holds no more
  const std::int64_t last = std::min(static_cast<std::int64_t>(*count), kLastIndex);
  for (std::int64_t index = 0; index <= last; ++index) {
    SMCKeyData input;
    SMCKeyData output;
    input.command = kGetKeyAtIndex;
    input.index = static_cast<std::uint32_t>(index);
    if (connection_->call(conn_, input, output) == 0) keys.push_back(charactersOf(output.key));
  }
  return keys;
}

std::variant<SMC::Value, std::int32_t> SMC::readValue(std::string_view key) const {
  if (key.size() != sizeof(SMCKeyData::key)) fatalError("A controller key has four characters");
  SMCKeyData input;
  SMCKeyData output;
  input.key = codeOf(key);
  input.command = kGetKeyInfo;
  if (const std::int32_t code = connection_->call(conn_, input, output); code != 0) return code;
  Value value{output.dataSize, charactersOf(output.dataType), {}};
  input.dataSize = value.dataSize;
  input.command = kReadKey;
  if (const std::int32_t code = connection_->call(conn_, input, output); code != 0) return code;
  // A driver that claims a longer value has no more than these bytes to give.
  const auto size = std::min<std::size_t>(value.dataSize, output.bytes.size());
  std::copy_n(output.bytes.begin(), size, value.bytes.begin());
  return value;
}

std::string SMC::errorText(std::int32_t code) const {
  const auto text = connection_->errorText(code);
  return text ? decodeText(*text).value_or("unknown error") : "unknown error";
}

const SMC& sharedSMC() {
  // Never closed: background threads may still read while the process exits.
  static const SMC* const smc = new SMC(systemSMCConnection());
  return *smc;
}

}  // namespace msp
