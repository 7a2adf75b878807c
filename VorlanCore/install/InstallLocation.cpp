#include "install/InstallLocation.hpp"

#include <nlohmann/json.hpp>

#include <limits>

#include "platform/AtomicFile.hpp"
#include "platform/FileReading.hpp"
#include "platform/PropertyList.hpp"
#include "platform/Utf8Text.hpp"

namespace vorlan {
namespace InstallLocation {
namespace {

std::string_view parentFolder(std::string_view path) {
  // A trailing "/" belongs to the last component, as the system's path functions read it.
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

bool liesAtOrUnder(std::string_view path, std::string_view mountPoint) {
  return path == mountPoint ||
         (path.size() > mountPoint.size() && path.starts_with(mountPoint) &&
          path[mountPoint.size()] == '/');
}

}  // namespace

bool isInstalled(std::string_view bundlePath, std::string_view home) {
  const std::string_view parent = parentFolder(bundlePath);
  return parent == "/Applications" || parent == std::string(home) + "/Applications";
}

bool shouldOfferMove(std::string_view bundlePath, std::string_view home, const Environment& env) {
  if (environmentValue(env, skipEnvKey) == "1") return false;
  if (!bundlePath.ends_with(".app")) return false;
  if (bundlePath.find("/.build/") != std::string_view::npos) return false;
  return !isInstalled(bundlePath, home);
}

std::optional<DiskImageMount> diskImageMount(std::string_view bundlePath,
                                             std::string_view hdiutilInfoPlist) {
  const PlistTree root = parsePropertyList(hdiutilInfoPlist);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  plist_t images = plist_dict_get_item(root.get(), "images");
  if (!images || plist_get_node_type(images) != PLIST_ARRAY) return std::nullopt;

  std::optional<DiskImageMount> best;
  size_t bestLength = 0;
  const uint32_t imageCount = plist_array_get_size(images);
  for (uint32_t i = 0; i < imageCount; ++i) {
    plist_t image = plist_array_get_item(images, i);
    // Every image must be a dictionary for the list to read at all.
    if (plist_get_node_type(image) != PLIST_DICT) return std::nullopt;
    const auto imagePath = plistString(image, "image-path");
    plist_t entities = plist_dict_get_item(image, "system-entities");
    if (!imagePath || !entities || plist_get_node_type(entities) != PLIST_ARRAY) continue;
    const uint32_t entityCount = plist_array_get_size(entities);
    for (uint32_t e = 0; e < entityCount; ++e) {
      const auto mountPoint = plistString(plist_array_get_item(entities, e), "mount-point");
      if (!mountPoint || mountPoint->empty() || !liesAtOrUnder(bundlePath, *mountPoint)) continue;
      const size_t length = codePointCount(*mountPoint);
      if (!best || length > bestLength) {
        best = DiskImageMount{*imagePath, *mountPoint};
        bestLength = length;
      }
    }
  }
  return best;
}

}  // namespace InstallLocation

std::filesystem::path InstallCleanup::markerPath(const std::filesystem::path& home) {
  return home / ".vorlan" / "install-cleanup.json";
}

void InstallCleanup::save(const std::filesystem::path& home) const {
  const auto target = markerPath(home);
  std::filesystem::create_directories(target.parent_path());
  writeFileAtomically(target, encode());
}

std::optional<InstallCleanup> InstallCleanup::consume(const std::filesystem::path& home) {
  const auto target = markerPath(home);
  const auto bytes = readRegularFile(target, 64 * 1024);
  if (!bytes) return std::nullopt;
  std::error_code ignored;
  std::filesystem::remove(target, ignored);
  return decode(*bytes);
}

std::string InstallCleanup::encode() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  if (mountPoint) json["mountPoint"] = *mountPoint;
  if (imagePath) json["imagePath"] = *imagePath;
  if (previousPID) json["previousPID"] = *previousPID;
  // The encoder of the original marker escapes "/" as "\/"; readers take both forms.
  std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '/') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::optional<InstallCleanup> InstallCleanup::decode(std::string_view json) {
  const auto value = nlohmann::json::parse(json, nullptr, false);
  if (value.is_discarded() || !value.is_object()) return std::nullopt;
  InstallCleanup record;
  for (const auto& [key, field] : {std::pair{"mountPoint", &record.mountPoint},
                                   std::pair{"imagePath", &record.imagePath}}) {
    const auto it = value.find(key);
    if (it == value.end() || it->is_null()) continue;
    if (!it->is_string()) return std::nullopt;
    *field = it->get<std::string>();
  }
  if (const auto it = value.find("previousPID"); it != value.end() && !it->is_null()) {
    if (!it->is_number_integer()) return std::nullopt;
    const auto pid = it->get<int64_t>();
    if (pid < std::numeric_limits<int32_t>::min() || pid > std::numeric_limits<int32_t>::max())
      return std::nullopt;
    record.previousPID = static_cast<int32_t>(pid);
  }
  return record;
}

}  // namespace vorlan
