#include "quarantine/QuarantineRecords.hpp"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <climits>
#include <nlohmann/json.hpp>
#include <system_error>
#include <new>
#include <utility>

namespace vorlan {
namespace {

constexpr std::array<std::pair<QuarantineErrorKind, std::string_view>, 7> kErrorNames{{
    {QuarantineErrorKind::outsideHome, "outsideHome"},
    {QuarantineErrorKind::outsideQuarantine, "outsideQuarantine"},
    {QuarantineErrorKind::batchNotFound, "batchNotFound"},
    {QuarantineErrorKind::batchIDExhausted, "batchIDExhausted"},
    {QuarantineErrorKind::outsideBatch, "outsideBatch"},
    {QuarantineErrorKind::storeOutsideHome, "storeOutsideHome"},
    {QuarantineErrorKind::storeBusy, "storeBusy"},
}};

std::string fileSystemProblem(int error) {
  switch (error) {
    case EEXIST: case ENOTEMPTY: return "그 자리에 이미 다른 것이 있습니다";
    case ENOENT: return "있어야 할 자리에 없습니다";
    case EXDEV: return "안에 다른 파일 시스템이나 폴더가 연결(마운트)되어 있어 건드리지 않았습니다";
    case ELOOP: case ENOTDIR: return "경로 중간에 링크나 파일이 있어 건드리지 않았습니다";
    case ENOSPC: case EDQUOT: return "디스크 공간이 부족합니다";
    case EACCES: case EPERM: return "권한이 없습니다";
    case EROFS: return "읽기 전용 디스크입니다";
    case EBUSY: return "다른 프로그램이 쓰고 있습니다";
    case EAGAIN: return "옮기는 동안 내용이 바뀌었습니다";
    case EIO: return "디스크를 읽거나 쓰지 못했습니다";
    case ENAMETOOLONG: return "경로가 너무 깁니다";
    case EMFILE: case ENFILE: return "한 번에 열 수 있는 파일 수를 넘었습니다";
    default: return fmt::format("파일 시스템 오류가 났습니다 (오류 번호 {})", error);
  }
}

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
      case QuarantineErrorKind::storeOutsideHome:
        return fmt::format("보관함 폴더가 홈 폴더 밖으로 이어져 있어(링크) 아무것도 하지 않았습니다: {}", q->value());
      case QuarantineErrorKind::storeBusy:
        return "다른 Vorlan이 보관함을 쓰고 있어 아무것도 하지 않았습니다. 끝난 뒤 다시 해 주세요.";
    }
  }
  if (dynamic_cast<const ManifestDecodingError*>(&error)) return "묶음의 목록 파일(manifest.json)을 읽을 수 없습니다";
  if (const auto* s = dynamic_cast<const std::system_error*>(&error))
    return "파일 시스템 오류: " + fileSystemProblem(s->code().value());
  if (dynamic_cast<const std::bad_alloc*>(&error)) return "메모리가 모자랍니다";
  return "예기치 못한 오류가 났습니다";
}

std::string describeItemProblem(const std::exception& error) {
  if (const auto* q = dynamic_cast<const QuarantineError*>(&error)) {
    switch (q->kind()) {
      case QuarantineErrorKind::outsideHome: return "홈 폴더 밖을 가리키는 경로라서 건드리지 않았습니다";
      case QuarantineErrorKind::outsideBatch: return "묶음 밖을 가리키는 경로라서 건드리지 않았습니다";
      default: return describeQuarantineFailure(error);
    }
  }
  if (const auto* s = dynamic_cast<const std::system_error*>(&error)) return fileSystemProblem(s->code().value());
  return describeQuarantineFailure(error);
}

int64_t addBytes(int64_t total, int64_t more) {
  if (more <= 0) return total;
  return total > INT64_MAX - more ? INT64_MAX : total + more;
}

}  // namespace vorlan
