#include "flow/InstallMover.hpp"

#include <QCoreApplication>
#include <QFile>

#include <signal.h>
#include <unistd.h>

#include <system_error>
#include <thread>

#include "install/InstallLocation.hpp"
#include "platform/ProcessIdentity.hpp"

namespace vorlan::app {
namespace {

std::string describe(InstallMoverFailure::Kind kind, const std::string& reason) {
  if (kind == InstallMoverFailure::Kind::copyFailed) return "옮기지 못했습니다: " + reason;
  return "옮겼지만 다시 열지 못했습니다 — 응용 프로그램 폴더에서 직접 열어주세요. (" + reason + ")";
}

std::string describeFileError(const std::error_code& ec) {
  switch (static_cast<std::errc>(ec.value())) {
    case std::errc::no_space_on_device: return "디스크 공간이 부족합니다";
    case std::errc::permission_denied:
    case std::errc::operation_not_permitted: return "권한이 없습니다";
    case std::errc::read_only_file_system: return "읽기 전용 디스크입니다";
    case std::errc::no_such_file_or_directory: return "파일이 없습니다";
    default: return "파일 시스템 오류 " + std::to_string(ec.value());
  }
}

bool startsWithFolder(std::string_view path, std::string_view folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace

InstallMoverFailure::InstallMoverFailure(Kind k, std::string why)
    : std::runtime_error(describe(k, why)), kind(k), reason(std::move(why)) {}

InstallSeams realInstallSeams(ToolRunning& runner) {
  InstallSeams seams;
  QString bundle = QCoreApplication::applicationFilePath();
  // A macOS bundle's executable sits in Vorlan.app/Contents/MacOS.
  const QString macos = QStringLiteral(".app/Contents/MacOS/");
  if (const qsizetype at = bundle.lastIndexOf(macos); at >= 0) bundle.truncate(at + 4);
  seams.bundlePath = bundle.toStdString();
  seams.ownExecutable = QCoreApplication::applicationFilePath().toStdString();
  seams.runner = [&runner]() -> ToolRunning& { return runner; };
  seams.otherInstances = [](const std::string& under) { return processesRunningFrom(under); };
  seams.runsExecutable = [](pid_t pid, const std::filesystem::path& exe) {
    return processRunsExecutable(pid, exe);
  };
  seams.isRunning = [](pid_t pid) { return ::kill(pid, 0) == 0; };
  seams.terminate = [](pid_t pid) { ::kill(pid, SIGTERM); };
  seams.forceTerminate = [](pid_t pid) { ::kill(pid, SIGKILL); };
  seams.sleep = [](std::chrono::milliseconds ms) { std::this_thread::sleep_for(ms); };
  seams.trash = [](const std::filesystem::path& path) { InstallMover::trash(path); };
  seams.eject = [&runner](const std::string& mountPoint) {
    try {
      runner.run({"hdiutil", "detach", mountPoint}, 60.0);
    } catch (const std::exception&) {
    }
  };
  seams.applicationsWritable = ::access("/Applications", W_OK) == 0;
  return seams;
}

namespace InstallMover {

std::filesystem::path destinationFolder(const std::filesystem::path& home, const InstallSeams& seams) {
  if (seams.applicationsWritable) return "/Applications";
  std::error_code ignored;
  std::filesystem::create_directories(home / "Applications", ignored);
  return home / "Applications";
}

std::string hdiutilInfo(ToolRunning& runner) {
  try {
    return runner.run({"hdiutil", "info", "-plist"}, 30.0).stdoutText;
  } catch (const std::exception&) {
    return {};
  }
}

QString originDescription(const std::string& bundlePath, const std::string& home) {
  if (bundlePath.starts_with("/Volumes/")) return QStringLiteral("디스크 이미지 안");
  if (startsWithFolder(bundlePath, home + "/Downloads")) return QStringLiteral("다운로드 폴더");
  if (bundlePath.find("/AppTranslocation/") != std::string::npos) return QStringLiteral("임시 위치");
  return QStringLiteral("응용 프로그램 폴더 밖");
}

void moveAndRelaunch(const std::filesystem::path& home, const InstallSeams& seams) {
  using Kind = InstallMoverFailure::Kind;
  const std::filesystem::path source = seams.bundlePath;
  const std::filesystem::path destination =
      destinationFolder(home, seams) / std::string(InstallLocation::appName);
  // Where the source lies is read before anything changes.
  const auto mount = InstallLocation::diskImageMount(source.string(), hdiutilInfo(seams.runner()));

  // Other copies at the destination are asked to quit and given three seconds; nothing forced.
  const auto others = seams.otherInstances(destination.string());
  for (pid_t pid : others) seams.terminate(pid);
  for (int round = 0; round < 6; ++round) {
    bool anyLeft = false;
    for (pid_t pid : others) anyLeft = anyLeft || seams.isRunning(pid);
    if (!anyLeft) break;
    seams.sleep(std::chrono::milliseconds(500));
  }

  // An older copy goes to the trash, never overwritten: it can still be taken back.
  std::error_code ec;
  if (std::filesystem::symlink_status(destination, ec).type() != std::filesystem::file_type::not_found) {
    try {
      seams.trash(destination);
    } catch (const std::exception& error) {
      throw InstallMoverFailure(Kind::copyFailed, error.what());
    }
  }
  std::filesystem::copy(source, destination,
                        std::filesystem::copy_options::recursive |
                            std::filesystem::copy_options::copy_symlinks,
                        ec);
  if (ec) throw InstallMoverFailure(Kind::copyFailed, describeFileError(ec));

  InstallCleanup marker;
  if (mount) {
    marker.mountPoint = mount->mountPoint;
    marker.imagePath = mount->imagePath;
  }
  marker.previousPID = static_cast<int32_t>(::getpid());
  try {
    marker.save(home);
  } catch (const std::exception&) {
    // The move goes on without the clean-up the marker would have brought.
  }

  ToolResult opened;
  try {
    opened = seams.runner().run({"open", "-n", destination.string()}, 60.0);
  } catch (const std::exception& error) {
    throw InstallMoverFailure(Kind::relaunchFailed, error.what());
  }
  if (opened.returncode != 0)
    throw InstallMoverFailure(Kind::relaunchFailed, "open exit " + std::to_string(opened.returncode));
}

std::optional<std::string> finishAfterMove(const std::filesystem::path& home, const InstallSeams& seams) {
  const auto marker = InstallCleanup::consume(home);
  if (!marker) return std::nullopt;
  // A marker left for days may name a process id the system has since given to another
  // program: only a process that still runs this program's own executable is waited on.
  if (marker->previousPID && seams.runsExecutable(*marker->previousPID, seams.ownExecutable)) {
    seams.sleep(std::chrono::seconds(2));
    if (seams.isRunning(*marker->previousPID)) seams.forceTerminate(*marker->previousPID);
  }
  if (marker->mountPoint) {
    // Other copies on the volume get eight seconds, then the eject is tried all the same.
    for (int attempt = 0; attempt < 16 && !seams.otherInstances(*marker->mountPoint).empty(); ++attempt)
      seams.sleep(std::chrono::milliseconds(500));
    seams.eject(*marker->mountPoint);
  }
  std::error_code ec;
  if (marker->imagePath && std::filesystem::exists(*marker->imagePath, ec)) return marker->imagePath;
  return std::nullopt;
}

void trash(const std::filesystem::path& path) {
  std::error_code ec;
  if (!std::filesystem::exists(std::filesystem::symlink_status(path, ec)))
    throw std::runtime_error("파일이 없습니다");
  if (!QFile::moveToTrash(QString::fromStdString(path.string())))
    throw std::runtime_error("휴지통을 쓸 수 없습니다");
}

}  // namespace InstallMover
}  // namespace vorlan::app
