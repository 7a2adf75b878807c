#include "network/Telemetry.hpp"

#include <array>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

#include <fmt/format.h>

#include "platform/FileReading.hpp"
#include "platform/Utf8Text.hpp"
#include "network/WebURL.hpp"
#include "platform/AtomicFile.hpp"

namespace vorlan::Telemetry {

const std::string_view defaultURL = VORLAN_DEFAULT_TELEMETRY_URL;
const std::string_view defaultAnonKey = VORLAN_DEFAULT_TELEMETRY_ANON_KEY;

const std::string_view consentSummary =
    "Vorlan 진단은 무료입니다 — 대신 익명 스캔 통계가 시스템 데이터 연구에 사용됩니다.\n"
    "전송되는 것: 디스크 용량 수치, 스캔 소요 시간, 폴더별 용량·안전 등급\n"
    "  (개인 폴더 이름은 <masked>로 가려지고 Library·도구 폴더만 원문), 측정 실패\n"
    "  항목, 무작위 설치 ID(기기·계정과 무관), 삭제·되돌리기 기록(어떤 폴더를 지웠고\n"
    "  되돌렸는지 — 판단이 틀린 곳을 고치는 데 씁니다).\n"
    "전송되지 않는 것: 파일 이름·내용, 계정 정보, 개인 폴더 이름.";

std::optional<Config> resolveConfig(const Environment& env, std::string_view defaultURL,
                                    std::string_view defaultAnonKey) {
  const std::string url = environmentValue(env, urlVariable).value_or(std::string(defaultURL));
  const std::string key =
      environmentValue(env, anonKeyVariable).value_or(std::string(defaultAnonKey));
  std::string_view trimmedURL = trimBlanks(url);
  std::string_view trimmedKey = trimBlanks(key);
  if (trimmedURL.empty() || trimmedKey.empty()) return std::nullopt;
  return Config{std::string(trimmedURL), std::string(trimmedKey)};
}

std::optional<Config> currentConfig() {
  return resolveConfig(processEnvironment(), defaultURL, defaultAnonKey);
}

bool isEnabled() { return currentConfig().has_value(); }

std::filesystem::path installIDFile(const std::filesystem::path& home) {
  return home / ".vorlan" / "install_id";
}

std::string newUUID() {
  std::random_device entropy;
  std::array<unsigned char, 16> bytes{};
  for (size_t i = 0; i < bytes.size(); i += 4) {
    const uint32_t word = entropy();
    for (size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<unsigned char>(word >> (8 * k));
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += fmt::format("{:02x}", bytes[i]);
  }
  return text;
}

std::string installID(const std::filesystem::path& file) {
  if (auto content = readRegularFile(file); content && isValidUtf8(*content)) {
    std::string_view id = trimBlanksAndNewlines(*content);
    // A person may have edited the file: any non-blank text is taken as it is.
    if (!id.empty()) return std::string(id);
  }
  const std::string id = newUUID();
  std::error_code ec;
  std::filesystem::create_directories(file.parent_path(), ec);
  if (ec) return std::string(unknownInstallID);
  try {
    writeFileAtomically(file, id);
  } catch (const std::exception&) {
    // An id that was not stored would change with every report; "unknown" says so honestly.
    return std::string(unknownInstallID);
  }
  return id;
}

bool namesUserFolder(std::string_view path) {
  for (std::string_view root : {"/Users/", "/home/"}) {
    if (!path.starts_with(root)) continue;
    std::string_view rest = path.substr(root.size());
    while (rest.starts_with('/')) rest.remove_prefix(1);
    if (!rest.empty()) return true;
  }
  return false;
}

std::string tableURL(std::string_view baseURL, std::string_view table) {
  return fmt::format("{}{}rest/v1/{}", baseURL, baseURL.ends_with('/') ? "" : "/", table);
}

bool postToTable(const Config& config, std::string_view table, const std::string& body,
                 HttpTransport& transport) {
  const std::string url = tableURL(config.url, table);
  if (!isWebURL(url)) return false;
  // A key with a line break or another control character would split the header lines.
  for (unsigned char c : config.anonKey)
    if (c < 0x20 || c == 0x7F) return false;
  HttpRequest request{
      .method = "POST",
      .url = url,
      .headers = {{"Content-Type", "application/json"},
                  {"apikey", config.anonKey},
                  {"Authorization", "Bearer " + config.anonKey},
                  {"Prefer", "return=minimal"}},
      .body = body,
      .timeout = sendTimeout,
  };
  auto response = transport.perform(request);
  return response && isSuccessStatus(response->status);
}

}  // namespace vorlan::Telemetry
