#include <gtest/gtest.h>

#include <array>
#include <regex>

#include "tests/driver/driver.h"

using namespace driver;

const std::wstring CLSID_KEY = L"Software\\Classes\\CLSID\\{fb0afedc-9b71-404f-8154-36cc0ef0a550}";
const std::wstring INPROC_KEY = CLSID_KEY + L"\\InprocServer32";
const fs::path LOG = L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log";
const fs::path SYSTEM_API = L"C:\\windows\\system32\\mfsensorgroup.dll";
const std::wstring CREATE = L"MFCreateVirtualCamera type=0 lifetime=1 access=1 name=Veloquin "
                            L"source={fb0afedc-9b71-404f-8154-36cc0ef0a550} count=";
const std::wstring FOR_REGISTER = CREATE + L"3 categories={E5323777-F976-4F5B-9B55-B94699C46E44},"
                                           L"{6994AD05-93EF-11D0-A3CC-00A0C9223196},"
                                           L"{65E8773D-8F56-11D0-A3B9-00A0C9223196} -> ";
const std::wstring FOR_REMOVE = CREATE + L"0 categories= -> ";
const std::wstring REGISTERING = L"Registering Veloquin virtual camera (COM + device)...";
const std::wstring REGISTERED = L"Registered. Veloquin should now appear in OBS / camera apps.";
const std::wstring REMOVING = L"Removing Veloquin virtual camera...";
const std::wstring UNREGISTERED = L"  COM server unregistered.";
const std::wstring COMPLETE = L"Unregister complete.";
const std::wstring LOAD_STAGE = L"Load MFCreateVirtualCamera from mfsensorgroup.dll. Windows build 22000+ is "
                                L"required for this registration path";
const std::string CAMERAS = "device Veloquin Front|swd#vcam\n"       // ours by its name
                            "device Front Camera\n"                  // without a link
                            "device USB Webcam|usb#webcam\n"         //
                            "device Studio Front Cam|SWD#VeLoQuIn\n" // ours by its link
                            "device Windows Virtual Camera front|swd#wvc\n"
                            "device FaceTime HD|usb#facetime\n" // the first with a preferred word
                            "device Integrated Camera|usb#integrated\n";

// The launcher's loads in a +loaddll trace of this same session under Wine 8, KnownDLLs aside. Left out:
// version, msimg32: Wine's own DLLs import them from the program's folder whatever the program does;
// winex11.drv, zlib1: Wine's alone; kernelbase, win32u, ucrtbase: the KnownDLLs' imports, in before it runs.
const wchar_t* const PRODUCER = L"veloquin_windows_retouch_vcam_producer.exe";
const wchar_t* const PLANTED[] = {L"bcrypt",  L"crypt32", L"rsaenh", L"comctl32", L"uxtheme",
                                  L"propsys", L"rtworkq", L"mfplat", L"mf",       L"mfsensorgroup"};

static std::wstring Retry(const std::wstring& stage, HRESULT hr, int delay, int attempt) {
    return stage + L" failed transiently (" + Code(hr) + L"), retrying in " + std::to_wstring(delay) +
           L" ms (attempt " + std::to_wstring(attempt) +
           L"/5) \u2014 the Camera Frame Server was likely still starting";
}

// The calls of an attempt that gets as far as starting the camera; without a link there is no camera.
static std::vector<std::wstring> Attempt(const fs::path& folder, const std::wstring& link, HRESULT added,
                                         HRESULT started) {
    std::vector<std::wstring> calls = {
        FOR_REGISTER + L"0x00000000",
        L"AddDeviceSourceInfo " + link + L" -> " + Code(added).substr(0, 10),
        L"SetString {3FE6A436-B25D-45EA-8E1C-E31292A9B090} " + link + L" -> 0x00000000",
        L"SetString {39FB8338-7D42-4EFB-9027-E3FCA8907224} " + folder.wstring() + L" -> 0x00000000",
        L"Start (null) -> " + Code(started).substr(0, 10),
        L"Release -> 0x00000000"};
    calls.erase(calls.begin() + 1, calls.begin() + (link.empty() ? 3 : 1));
    return calls;
}

// Type, size in bytes and text of a value under HKEY_LOCAL_MACHINE.
static std::wstring Value(const std::wstring& key, const wchar_t* name) {
    wchar_t data[1024] = {};
    DWORD type = 0, size = sizeof(data);
    return RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &type, data, &size)
               ? L"(none)"
               : std::to_wstring(type) + L" " + std::to_wstring(size) + L" " + data;
}

// The service log's lines without their time stamps, whose form the unit tests check.
static std::vector<std::wstring> LogTexts() {
    std::vector<std::wstring> texts = FileLines(LOG);
    for (std::wstring& line : texts) {
        line = std::regex_replace(line, std::wregex(L"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d "), L"");
    }
    return texts;
}

// What one press adds: pane lines, service log texts and calls to the virtual camera API.
using Outcome = std::array<std::vector<std::wstring>, 3>;

// What Register adds when it goes through at once, against CAMERAS and the camera's own link.
static Outcome Registered(const fs::path& folder) {
    return {
        {{REGISTERING, REGISTERED, L"  symbolic link: SWD#VCAMDEVAPI#veloquin", L"Found 7 camera device(s)."},
         {L"Associated physical camera: FaceTime HD"},
         Attempt(folder, L"usb#facetime", S_OK, S_OK)}};
}

static Outcome Act(const Launcher& launcher, int button, const fs::path& journal) {
    fs::remove(journal);
    fs::remove(LOG);
    std::vector<std::wstring> lines = launcher.Lines();
    EXPECT_TRUE(launcher.Press(button) && launcher.Settle());
    std::vector<std::wstring> after = launcher.Lines();
    return {std::vector<std::wstring>(after.begin() + static_cast<long>(lines.size()), after.end()),
            LogTexts(), FileLines(journal)};
}

// Registering and removing the camera, through the retries, from a folder with blanks and letters
// beyond ASCII, beside DLLs planted under the names of the system's that must never be loaded.
TEST(Registration, RegisterRetryAndUnregister) {
    fs::path root = Scenario(L"registration"),
             folder = root / L"Veloquin \u041a\u0430\u043c\u0435\u0440\u0430 \u00e9";
    fs::create_directories(folder);
    // Both programs prefer a DLL beside them to Wine's own, as Windows would. By their own keys: Wine hands
    // a child the WINEDLLOVERRIDES of its parent's Unix environment, whatever the parent has set.
    for (const std::wstring planted : PLANTED) {
        fs::copy_file(BinFolder() / L"canary.dll", folder / (planted + L".dll"));
        for (const std::wstring program : {L"veloquin_launcher.exe", PRODUCER}) {
            RegSetKeyValueW(HKEY_CURRENT_USER,
                            (L"Software\\Wine\\AppDefaults\\" + program + L"\\DllOverrides").c_str(),
                            planted.c_str(), REG_SZ, L"n,b", 8);
        }
    }
    fs::remove(SYSTEM_API); // as before Windows build 22000
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, CLSID_KEY.c_str());
    const fs::path script = root / L"script.txt", journal = root / L"journal.txt";
    Write(script, CAMERAS);
    Launcher launcher;
    ASSERT_TRUE(launcher.Start(folder));
    const std::wstring dll = (folder / L"veloquin_windows_vcam_source.dll").wstring();
    const std::wstring found7 = L"Found 7 camera device(s).", found0 = L"Found 0 camera device(s).";
    const std::wstring noApi = Code(0x8007007E);

    EXPECT_EQ(Act(launcher, Register, journal),
              (Outcome{{{L"ERROR: media-source DLL not found next to launcher: " + dll}, {}, {}}}));
    EXPECT_EQ(Value(CLSID_KEY, nullptr), L"(none)");
    fs::create_directory(dll); // anything at the path will do
    EXPECT_EQ(Act(launcher, Register, journal),
              (Outcome{{{REGISTERING, L"Register FAILED: " + noApi, L"  detail: " + LOAD_STAGE, found7},
                        {LOAD_STAGE + L" failed: " + noApi}}}));
    EXPECT_EQ(Value(INPROC_KEY, L"ThreadingModel"), L"1 10 Both");
    EXPECT_EQ(Act(launcher, Unregister, journal),
              (Outcome{{{REMOVING, L"  remove device failed: " + noApi, UNREGISTERED, COMPLETE, found7}}}));

    fs::copy_file(BinFolder() / L"standin_system.dll", SYSTEM_API);
    Write(script, CAMERAS + "link SWD#VCAMDEVAPI#veloquin\n");
    EXPECT_EQ(Act(launcher, Register, journal), Registered(folder));
    EXPECT_EQ(Value(CLSID_KEY, nullptr), L"1 60 Veloquin Retouch Media Source");
    EXPECT_EQ(Value(INPROC_KEY, nullptr), L"2 " + std::to_wstring((dll.size() + 1) * 2) + L" " + dll);

    // Every transient code is retried with its delay: two here, four more below.
    Write(script, "device USB Webcam|usb#1\ndevice INTEGRATED Camera|usb#int\n"
                  "MFCreateVirtualCamera 0x80070426 0x800706D9 0\n");
    ULONGLONG start = GetTickCount64();
    std::vector<std::wstring> calls = Attempt(folder, L"usb#int", S_OK, S_OK);
    calls.insert(calls.begin(), {FOR_REGISTER + L"0x80070426", FOR_REGISTER + L"0x800706D9"});
    EXPECT_EQ(Act(launcher, Register, journal),
              (Outcome{{{REGISTERING, REGISTERED, L"Found 2 camera device(s)."},
                        {Retry(L"MFCreateVirtualCamera", 0x80070426, 1000, 1),
                         Retry(L"MFCreateVirtualCamera", 0x800706D9, 2000, 2),
                         L"Associated physical camera: INTEGRATED Camera",
                         L"Virtual camera registration succeeded on attempt 3"},
                        calls}}));
    EXPECT_GE(GetTickCount64() - start, 3000u);

    // A transient code on the fifth attempt is final.
    const unsigned long transient[] = {0x800706BA, 0x800706BE, 0x800706BF, 0x80070015, 0x800706BA};
    const int delays[] = {1000, 2000, 3000, 5000};
    Write(script,
          "device Front Camera|usb#front\nStart 0x800706BA 0x800706BE 0x800706BF 0x80070015 0x800706BA\n");
    Outcome expected = {{{REGISTERING, L"Register FAILED: " + Code(0x800706BA),
                          L"  detail: IMFVirtualCamera::Start", L"Found 1 camera device(s)."}}};
    for (int attempt = 1; attempt <= 5; ++attempt) {
        HRESULT hr = static_cast<HRESULT>(transient[attempt - 1]);
        expected[1].push_back(L"Associated physical camera: Front Camera");
        expected[1].push_back(attempt < 5
                                  ? Retry(L"IMFVirtualCamera::Start", hr, delays[attempt - 1], attempt)
                                  : L"IMFVirtualCamera::Start failed: " + Code(hr));
        calls = Attempt(folder, L"usb#front", S_OK, hr);
        expected[2].insert(expected[2].end(), calls.begin(), calls.end());
    }
    start = GetTickCount64();
    EXPECT_EQ(Act(launcher, Register, journal), expected);
    EXPECT_GE(GetTickCount64() - start, 11000u);

    // Without a camera only the folder is set; the code right after a transient one is not transient.
    Write(script, "Start 0x800706BB\n");
    EXPECT_EQ(Act(launcher, Register, journal),
              (Outcome{{{REGISTERING, L"Register FAILED: " + Code(0x800706BB),
                         L"  detail: IMFVirtualCamera::Start", found0},
                        {L"No physical camera was available during virtual camera registration.",
                         L"IMFVirtualCamera::Start failed: " + Code(0x800706BB)},
                        Attempt(folder, L"", S_OK, 0x800706BB)}}));

    // No preferred name, whatever the links say: the first camera.
    Write(script, "device USB Webcam|usb#windows virtual camera\ndevice Capture Card|usb#front\n"
                  "AddDeviceSourceInfo 0x80004005\n");
    EXPECT_EQ(Act(launcher, Register, journal),
              (Outcome{{{REGISTERING, REGISTERED, L"Found 2 camera device(s)."},
                        {L"AddDeviceSourceInfo failed: " + Code(0x80004005),
                         L"Associated physical camera: USB Webcam"},
                        Attempt(folder, L"usb#windows virtual camera", 0x80004005, S_OK)}}));

    // No retry for removal, and a key that is gone counts as unregistered.
    for (HRESULT removed : {S_OK, static_cast<HRESULT>(0x800706BA)}) {
        Write(script, removed ? "Remove 0x800706BA\n" : "");
        EXPECT_EQ(
            Act(launcher, Unregister, journal),
            (Outcome{{{REMOVING, removed ? L"  remove device failed: " + Code(removed) : L"  device removed.",
                       UNREGISTERED, COMPLETE, found0},
                      {},
                      {FOR_REMOVE + L"0x00000000", L"Remove -> " + Code(removed).substr(0, 10),
                       L"Release -> 0x00000000"}}}));
        EXPECT_EQ(Value(CLSID_KEY, nullptr), L"(none)");
    }

    fs::copy_file(BinFolder() / L"standin_producer.exe", folder / PRODUCER);
    Write(script, "producer wait\n");
    ASSERT_TRUE(launcher.Press(StartProducer) && WaitFor([&] { return launcher.Running(); }));
    // The producer may load DLLs from its own folder, and takes a canary there: the canaries work.
    EXPECT_TRUE(WaitFor([&] { return Read(root / L"loads.txt").find(Utf8(PRODUCER)) != std::string::npos; }));
    ASSERT_TRUE(launcher.Press(StopProducer) && WaitFor([&] { return launcher.Idle(); }));
    DWORD exitCode = 0;
    EXPECT_TRUE(launcher.Close(&exitCode));
    const std::string loads = Read(root / L"loads.txt");
    EXPECT_EQ(loads.find("taken by " + Utf8(folder / L"veloquin_launcher.exe")), std::string::npos) << loads;
}

// Where the package installed it: tests/check-installer.sh has it press Register.
TEST(Installed, Register) {
    const fs::path folder = Variable(L"VQTEST_INSTALLED"), journal = Scenario(L"installed") / L"journal.txt";
    if (folder.empty()) {
        GTEST_SKIP() << "run by tests/check-installer.sh";
    }
    Write(journal.parent_path() / L"script.txt", CAMERAS + "link SWD#VCAMDEVAPI#veloquin\n");
    Launcher launcher;
    ASSERT_TRUE(launcher.Start(folder, false, true));
    EXPECT_EQ(Act(launcher, Register, journal), Registered(folder));
}
