#!/usr/bin/env python3
"""Counts how much of a typical home the knowledge dictionary explains.

Builds a small synthetic home of real application folder names under the cleanup parents
(one 4 KB file each, so the whole home takes a few MB), runs `vorlan plan --json --all` on it
and counts the rows by verdict, and the rows that no dictionary row explains. Every parent is
covered by a rule, so few rows come out unknown; a row that shows only its parent's rule note
(learnt from a probe folder of a made-up name) is one that the dictionary does not know.

usage: dictionary-coverage.py VORLAN [HOME]   (HOME defaults to a fresh temporary folder)
"""
import collections
import json
import os
import subprocess
import sys
import tempfile

# Applications that count as installed, so their folders are judged by content, not as orphans.
INSTALLED = [
    "com.google.Chrome", "com.microsoft.VSCode", "com.tinyspeck.slackmacgap", "us.zoom.xos",
    "com.hnc.Discord", "com.spotify.client", "com.figma.Desktop", "com.openai.chat",
    "com.anthropic.claudefordesktop", "com.microsoft.teams2", "com.docker.docker",
    "com.googlecode.iterm2", "com.raycast.macos", "md.obsidian", "notion.id",
    "com.bitwarden.desktop", "com.naver.Whale", "com.kakao.KakaoTalkMac",
    "com.microsoft.Word", "com.microsoft.autoupdate2", "org.mozilla.firefox",
    "com.brave.Browser", "com.jetbrains.toolbox", "com.postmanlabs.mac",
]

# What a developer's or a heavy user's Mac typically holds under the cleanup parents.
FOLDERS = {
    "Library/Caches": """
        com.apple.Safari com.apple.Safari.SafeBrowsing com.apple.WebKit.Networking
        com.apple.WebKit.WebContent com.apple.akd com.apple.appstore com.apple.appstoreagent
        com.apple.nsurlsessiond com.apple.parsecd com.apple.helpd com.apple.python
        com.apple.Music com.apple.iTunes com.apple.gamed com.apple.SpeechRecognitionCore
        com.apple.imfoundation.IMRemoteURLConnectionAgent com.apple.e5rt.e5bundlecache
        com.apple.ap.adprivacyd com.apple.AppleMediaServices com.apple.bird com.apple.commerce
        com.apple.iCloudHelper com.apple.proactive.eventtracker com.apple.Spotlight
        com.apple.dt.Xcode com.apple.touristd com.apple.tipsd CloudKit GeoServices
        AudioUnitCache Google com.google.Chrome com.google.Chrome.canary com.google.SoftwareUpdate
        Firefox org.mozilla.firefox Mozilla BraveSoftware com.brave.Browser Arc
        com.thebrowser.Browser Microsoft\\ Edge com.microsoft.edgemac Naver com.naver.Whale
        com.operasoftware.Opera Vivaldi com.vivaldi.Vivaldi Thunderbird
        com.tinyspeck.slackmacgap com.tinyspeck.slackmacgap.ShipIt com.hnc.Discord
        com.hnc.Discord.ShipIt us.zoom.xos com.microsoft.teams com.microsoft.teams2
        com.skype.skype org.whispersystems.signal-desktop com.kakao.KakaoTalkMac
        com.spotify.client com.figma.Desktop com.openai.chat com.anthropic.claudefordesktop
        com.anthropic.claudefordesktop.ShipIt claude-cli-nodejs com.microsoft.VSCode
        com.microsoft.VSCode.ShipIt com.todesktop.230313mzl4w4u92 com.exafunction.windsurf
        JetBrains com.jetbrains.toolbox com.googlecode.iterm2 dev.warp.Warp-Stable
        com.raycast.macos com.runningwithcrayons.Alfred md.obsidian notion.id
        com.bitwarden.desktop com.1password.1password com.docker.docker com.postmanlabs.mac
        com.microsoft.autoupdate2 com.microsoft.Word com.microsoft.Excel com.adobe.Reader
        Adobe com.adobe.acc.AdobeCreativeCloud com.epicgames.EpicGamesLauncher
        com.valvesoftware.steam org.videolan.vlc com.colliderli.iina com.crashlytics.data
        io.sentry SentryCrash com.plausiblelabs.crashreporter.data Homebrew pip pypoetry
        pipenv pdm Yarn pnpm deno node-gyp electron electron-builder esbuild ms-playwright
        Cypress go-build gopls golangci-lint staticcheck typescript CocoaPods
        org.swift.swiftpm org.carthage.CarthageKit Coursier JNA vscode-cpptools ccache
        Mozilla.sccache composer llama.cpp lima rclone org.R-project.R Jedi black
        com.sindresorhus.Caprine com.getdropbox.dropbox com.google.drivefs
        com.grammarly.ProjectLlama com.linear com.todoist.mac.Todoist
    """,
    "Library/Application Support": """
        AddressBook CallHistoryDB CallHistoryTransactions CloudDocs FileProvider Knowledge
        MobileSync iCloud com.apple.TCC com.apple.sharedfilelist com.apple.wallpaper
        com.apple.backgroundtaskmanagementagent com.apple.ProtectedCloudStorage
        com.apple.spotlight com.apple.avfoundation CrashReporter DiskImages Dock
        Google Firefox BraveSoftware Arc Microsoft\\ Edge Naver Vivaldi Chromium
        com.operasoftware.Opera Thunderbird Slack discord zoom.us Microsoft Signal
        Telegram\\ Desktop Element WhatsApp Claude com.openai.chat Code Cursor Windsurf
        Code\\ -\\ Insiders Zed JetBrains Sublime\\ Text Postman Insomnia GitHub\\ Desktop
        SourceTree com.mitchellh.ghostty iTerm2 dev.warp.Warp-Stable com.raycast.macos Alfred
        Notion obsidian Evernote LibreOffice Zotero Figma Adobe Blender obs-studio audacity
        org.videolan.vlc Spotify Steam minecraft Epic Battle.net UnityHub Godot Bitwarden
        1Password Box Mega\\ Limited Dropbox OneDrive rancher-desktop Docker\\ Desktop
        Postgres com.tinyapp.TablePlus MongoDB\\ Compass pypoetry virtualenv fnm
        Caches com.bugsnag.Bugsnag Electron com.grammarly.ProjectLlama Caprine
        com.kakao.KakaoTalkMac Todoist Linear
    """,
    "Library/Group Containers": """
        group.com.apple.notes group.com.apple.reminders group.com.apple.calendar
        group.com.apple.VoiceMemos.shared 243LU875E5.groups.com.apple.podcasts
        group.com.apple.coreservices.useractivityd group.com.apple.secure-control-center-preferences
        UBF8T346G9.Office UBF8T346G9.ms UBF8T346G9.com.microsoft.oneauth
        UBF8T346G9.OneDriveStandaloneSuite UBF8T346G9.com.microsoft.teams
        UBF8T346G9.OfficeOsfWebHost 2BUA8C4S2C.com.1password 6N38VWS5BX.ru.keepcoder.Telegram
        group.net.whatsapp.WhatsApp.shared group.com.docker HUAQ24HBR6.dev.orbstack
        9K33E3U3T4.net.shinyfrog.bear JLMPQHK86H.com.culturedcode.ThingsMac
        3L68KQB4HG.group.com.readdle.smartemail EQHXZ8M8AV.group.com.google.drivefs
    """,
    "Library/Developer/CoreSimulator": "Caches Devices Temp",
    "Library/Developer/Xcode/DerivedData": "ModuleCache.noindex SDKStatCaches.noindex CompilationCache.noindex",
    ".cache": """
        huggingface torch whisper lm-studio llama.cpp pip pypoetry uv pre-commit
        node yarn pnpm typescript deno prisma puppeteer ms-playwright selenium go-build
        gopls golangci-lint JetBrains Google nvim clangd mozilla google-chrome chromium
        Homebrew bazel ccache sccache vcpkg R rclone mise act gh starship zsh
        matplotlib black pylint mypy ruff codex claude-cli-nodejs
    """,
    ".gradle/caches": "modules-2 jars-9 transforms-4 build-cache-1 journal-1 8.10 kotlin-dsl",
    ".npm": "_cacache _logs _npx _prebuilds _update-notifier-last-checked.d",
    ".bun/install": "cache global",
}


# A folder of a made-up name under each parent: the plan shows for it only the parent's rule.
PROBE = "zz-no-such-app"


def names(text):
    # A backslash keeps a space inside a name.
    return [n.replace("\0", " ") for n in text.replace("\\ ", "\0").split()]


def build(home):
    for parent, text in FOLDERS.items():
        for name in names(text) + [PROBE]:
            folder = os.path.join(home, parent, name)
            os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, "data.bin"), "wb") as f:
                f.write(b"x" * 4096)
    for bundle in INSTALLED:
        contents = os.path.join(home, "Applications", bundle + ".app", "Contents")
        os.makedirs(contents, exist_ok=True)
        with open(os.path.join(contents, "Info.plist"), "w") as f:
            f.write('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
                    f"<key>CFBundleIdentifier</key><string>{bundle}</string></dict></plist>\n")



def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    home = sys.argv[2] if len(sys.argv) > 2 else tempfile.mkdtemp(prefix="vorlan-home-")
    build(home)
    env = dict(os.environ, HOME=home)
    out = subprocess.run([sys.argv[1], "plan", "--json", "--all", "--no-progress"], env=env,
                         check=True, capture_output=True, text=True).stdout
    rows = json.loads(out)
    # What a folder that nothing knows shows, parent by parent.
    generic = {r["path"].rsplit("/", 1)[0]: r["what"] for r in rows if r["name"] == PROBE}
    rows = [r for r in rows if r["name"] != PROBE]
    verdicts = collections.Counter(r["verdict"] for r in rows)
    unexplained = [r["path"] for r in rows
                   if r["what"] == generic.get(r["path"].rsplit("/", 1)[0])]
    print(f"home: {home}")
    print(f"rows: {len(rows)}")
    for verdict, count in sorted(verdicts.items()):
        print(f"  {verdict}: {count}")
    print(f"not known to the dictionary: {len(unexplained)}")
    for path in sorted(unexplained):
        print(f"    {path}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
