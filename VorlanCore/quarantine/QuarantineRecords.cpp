#include "quarantine/QuarantineRecords.hpp"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace vorlan {
namespace {

constexpr std::array<std::pair<QuarantineErrorKind, std::string_view>, 5> kErrorNames{{
    {QuarantineErrorKind::outsideHome, "outsideHome"},
    {QuarantineErrorKind::outsideQuarantine, "outsideQuarantine"},
    {QuarantineErrorKind::batchNotFound, "batchNotFound"},
    {QuarantineErrorKind::batchIDExhausted, "batchIDExhausted"},
    {QuarantineErrorKind::outsideBatch, "outsideBatch"},
}};

using Json = nlohmann::json;  // std::map underneath: keys come out sorted

const Json& required(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end()) throw ManifestDecodingError(fmt::format("manifest: missing key '{}'", key));
  return *it;
}

int64_t requiredInteger(const Json& object, const char* key) {
  const Json& value = required(object, key);
  if (!value.is_number_integer())
    throw ManifestDecodingError(fmt::format("manifest: '{}' is not a whole number", key));
  if (value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX))
    throw ManifestDecodingError(fmt::format("manifest: '{}' is out of range", key));
  return value.get<int64_t>();
}

std::string requiredText(const Json& object, const char* key) {
  const Json& value = required(object, key);
  if (!value.is_string()) throw ManifestDecodingError(fmt::format("manifest: '{}' is not a text", key));
  return value.get<std::string>();
}

const Json& requiredArray(const Json& object, const char* key) {
  const Json& value = required(object, key);
  if (!value.is_array()) throw ManifestDecodingError(fmt::format("manifest: '{}' is not a list", key));
  return value;
}

}  // namespace

std::string_view rawValue(QuarantineErrorKind kind) {
  for (const auto& [k, name] : kErrorNames)
    if (k == kind) return name;
  return {};
}

std::optional<QuarantineErrorKind> quarantineErrorKindFromRaw(std::string_view raw) {
  for (const auto& [k, name] : kErrorNames)
    if (name == raw) return k;
  return std::nullopt;
}

QuarantineError::QuarantineError(QuarantineErrorKind kind, std::string value)
    : std::runtime_error(fmt::format("{}: {}", rawValue(kind), value)), kind_(kind), value_(std::move(value)) {}

std::string encodeManifest(const QuarantineBatch& batch) {
  Json items = Json::array();
  for (const auto& item : batch.items)
    items.push_back(Json{{"bytes", item.bytes}, {"original", item.original}, {"stored", item.stored}});
  Json doc{{"createdEpoch", batch.createdEpoch},
           {"expiresEpoch", batch.expiresEpoch},
           {"failures", batch.failures},
           {"id", batch.id},
           {"items", std::move(items)}};
  // `move` never moves a name that is not UTF-8, so items are always exact; such a name can
  // only stand among the failures, where a replacement character loses no file.
  return doc.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

QuarantineBatch decodeManifest(std::string_view json) {
  Json doc;
  try {
    doc = Json::parse(json);
  } catch (const Json::exception& e) {
    throw ManifestDecodingError(fmt::format("manifest: {}", e.what()));
  }
  if (!doc.is_object()) throw ManifestDecodingError("manifest: not an object");
  QuarantineBatch batch;
  batch.id = requiredText(doc, "id");
  batch.createdEpoch = requiredInteger(doc, "createdEpoch");
  batch.expiresEpoch = requiredInteger(doc, "expiresEpoch");
  for (const Json& failure : requiredArray(doc, "failures")) {
    if (!failure.is_string()) throw ManifestDecodingError("manifest: a failure is not a text");
    batch.failures.push_back(failure.get<std::string>());
  }
  for (const Json& entry : requiredArray(doc, "items")) {
    if (!entry.is_object()) throw ManifestDecodingError("manifest: an item is not an object");
    batch.items.push_back({requiredText(entry, "original"), requiredText(entry, "stored"),
                           requiredInteger(entry, "bytes")});
  }
  return batch;
}

std::string describeQuarantineFailure(const std::exception& error) {
  if (const auto* q = dynamic_cast<const QuarantineError*>(&error)) {
    switch (q->kind()) {
      case QuarantineErrorKind::outsideHome:
        return fmt::format("홈 폴더 밖을 가리키는 경로입니다: {}", q->value());
      case QuarantineErrorKind::outsideQuarantine:
        return fmt::format("보관함 묶음 이름이 올바르지 않습니다: {}", q->value());
      case QuarantineErrorKind::batchNotFound:
        return fmt::format("보관함에 그런 묶음이 없습니다: {}", q->value());
      case QuarantineErrorKind::batchIDExhausted:
        return fmt::format("같은 시각의 보관함 묶음이 너무 많습니다: {}", q->value());
      case QuarantineErrorKind::outsideBatch:
        return fmt::format("묶음 밖을 가리키는 경로입니다: {}", q->value());
    }
  }
  if (dynamic_cast<const ManifestDecodingError*>(&error))
    return fmt::format("묶음의 목록 파일을 읽을 수 없습니다 ({})", error.what());
  if (const auto* s = dynamic_cast<const std::system_error*>(&error))
    return fmt::format("파일 시스템 오류: {}", s->what());
  return error.what();
}

}  // namespace vorlan
