#include <windows.h>
#include <commctrl.h>

#include "launcher/launcher_state.h"
#include "launcher/main_window.h"
#include "launcher/paths.h"
#include "launcher/system_library.h"

static constexpr DWORD MAIN_WINDOW_STYLE =
    WS_OVERLAPPED | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;

// comctl32 is not a KnownDLL, so it is not imported: a planted copy in our own folder would then load
// with the imports, before the search is restricted.
static void InitCommonControlsFromSystem() {
    decltype(&InitCommonControlsEx) init = nullptr;
    if (SUCCEEDED(LoadSystemFunction(L"comctl32.dll", "InitCommonControlsEx", &init))) {
        INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_STANDARD_CLASSES};
        init(&controls);
    }
}

// A multi-line edit that the dialog manager has queried turns Esc into WM_CLOSE for its parent, a
// habit kept since Windows 2.0. The pane is a read-only log: Esc there would end the producer unasked.
static bool IsEscapeForStatusPane(const MSG& message) {
    return message.hwnd != nullptr && message.hwnd == g_launcher.statusPane &&
           (message.message == WM_KEYDOWN || message.message == WM_KEYUP) && message.wParam == VK_ESCAPE;
}

// The launcher runs elevated beside standard users: it loads no image from a remote share or with a
// low integrity label, prefers the system folder's, and follows no junction that a non-administrator
// made (behind the service log's own checks, not instead of them; hard links are not covered). A
// Windows that doesn't know a policy refuses it, and the launcher works as before.
// Left off: Microsoft-signed images only (would block text services, accessibility tools and the
// camera vendors' DLLs that Media Foundation loads), no dynamic code (graphics and media drivers make
// code), no extension points (screen readers hook in through them), strict handle checks (nothing
// here could show that a stray handle wouldn't end the launcher). The producer keeps its own.
static void TurnOnMitigations() {
    PROCESS_MITIGATION_IMAGE_LOAD_POLICY images = {};
    images.NoRemoteImages = 1;
    images.NoLowMandatoryLabelImages = 1;
    images.PreferSystem32Images = 1;
    SetProcessMitigationPolicy(ProcessImageLoadPolicy, &images, sizeof(images));
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY redirection = {};
    redirection.EnforceRedirectionTrust = 1;
    SetProcessMitigationPolicy(ProcessRedirectionTrustPolicy, &redirection, sizeof(redirection));
}

// The loader calls it once the imports are in, before the C runtime's start-up and constructors, among
// them the stack protector's set-up, which loads the crypto provider: nothing more comes from our folder.
static void NTAPI RestrictLoading(PVOID, DWORD reason, PVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        TurnOnMitigations();
        SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
}

// Ahead of the C runtime's own TLS callbacks (.CRT$XLC and later).
#if defined(_MSC_VER)
#if !defined(_M_X64)
#error "x64 only: an x86 build names the TLS directory __tls_used, and these names no longer match."
#endif
#pragma comment(linker, "/INCLUDE:_tls_used")
#pragma comment(linker, "/INCLUDE:restrictLoadingCallback")
#pragma section(".CRT$XLB", long, read)
extern "C" __declspec(allocate(".CRT$XLB")) const PIMAGE_TLS_CALLBACK restrictLoadingCallback =
    RestrictLoading;
#else
extern "C" __attribute__((section(".CRT$XLB"), used)) const PIMAGE_TLS_CALLBACK restrictLoadingCallback =
    RestrictLoading;
#endif

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int showCommand) {
    g_launcher.launcherFolder = GetLauncherFolder();
    g_launcher.producerPath = AppendPath(g_launcher.launcherFolder, PRODUCER_FILE_NAME);
    g_launcher.mediaSourcePath = AppendPath(g_launcher.launcherFolder, MEDIA_SOURCE_FILE_NAME);

    InitCommonControlsFromSystem();

    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = MainWindowProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_BTNFACE + 1));
    windowClass.lpszClassName = L"VeloquinLauncherWindow";
    if (!RegisterClassW(&windowClass)) {
        return 1;
    }

    RECT bounds = {0, 0, 596, 600};
    AdjustWindowRect(&bounds, MAIN_WINDOW_STYLE, FALSE);
    HWND window = CreateWindowExW(0, windowClass.lpszClassName, L"Veloquin Launcher", MAIN_WINDOW_STYLE,
                                  CW_USEDEFAULT, CW_USEDEFAULT, bounds.right - bounds.left,
                                  bounds.bottom - bounds.top, nullptr, nullptr, instance, nullptr);
    if (window == nullptr) {
        return 1;
    }
    ShowWindow(window, showCommand);
    UpdateWindow(window);

    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (IsEscapeForStatusPane(message)) {
            continue;
        }
        if (!IsDialogMessageW(window, &message)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
    return static_cast<int>(message.wParam);
}
