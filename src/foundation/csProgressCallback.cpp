#include "csProgressCallback.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "code_pages.h"
#include "csPaths.h"

namespace tmi {

namespace {

constexpr size_t kFrameHeader = 16;

void PutLE(std::string& aOut, uint64_t aValue, int aBytes) {
    for (int i = 0; i < aBytes; ++i) aOut.push_back(static_cast<char>((aValue >> (8 * i)) & 0xFF));
}

uint64_t GetLE(const char* aData, int aBytes) {
    uint64_t v = 0;
    for (int i = aBytes - 1; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(aData[i]);
    return v;
}

// A socket name that fits an address: in the temporary folder, else in /tmp.
std::string NewSocketName() {
    static std::atomic<unsigned> counter{0};
    const std::string leaf = "tmProgress." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".sock";
    std::string name = TempFolder() + leaf;
    if (name.size() >= sizeof(sockaddr_un{}.sun_path)) name = "/tmp/" + leaf;
    return name;
}

bool FillAddress(const std::string& aName, sockaddr_un& aAddress) {
    std::memset(&aAddress, 0, sizeof aAddress);
    aAddress.sun_family = AF_UNIX;
    if (aName.empty() || aName.size() >= sizeof aAddress.sun_path) return false;
    std::memcpy(aAddress.sun_path, aName.data(), aName.size());
    return true;
}

}  // namespace

TcsProgressCallback::TcsProgressCallback(TcsProgress& aOwner) : fOwner(aOwner), fName(NewSocketName()) {
    sockaddr_un address{};
    if (!FillAddress(fName, address)) throw Exception("Имя канала прогресса слишком длинное: " + fName);
    fListen = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fListen < 0) throw Exception(std::string("Канал прогресса не создан: ") + std::strerror(errno));
    ::unlink(fName.c_str());
    if (::bind(fListen, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fListen, 8) != 0) {
        const int error = errno;
        ::close(fListen);
        throw Exception("Канал прогресса " + fName + " не открыт: " + std::strerror(error));
    }
}

TcsProgressCallback::~TcsProgressCallback() {
    for (const Connection& c : fConnections) ::close(c.fFd);
    if (fListen >= 0) ::close(fListen);
    ::unlink(fName.c_str());
}

bool TcsProgressCallback::Poll(int aWaitMs) {
    // A served message may refresh the view, which pumps and comes back here.
    if (fPolling) return false;
    struct Guard {
        bool& f;
        explicit Guard(bool& a) : f(a) { f = true; }
        ~Guard() { f = false; }
    } guard(fPolling);
    std::vector<pollfd> fds;
    fds.push_back({fListen, POLLIN, 0});
    for (const Connection& c : fConnections) fds.push_back({c.fFd, POLLIN, 0});
    if (::poll(fds.data(), fds.size(), aWaitMs) <= 0) return false;
    bool any = false;
    // Connections that came before this round, walked from the end so that dropping one
    // leaves the indices of the others.
    for (size_t i = fConnections.size(); i-- > 0;) {
        if (!(fds[i + 1].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        Connection& c = fConnections[i];
        bool closed = false;
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::recv(c.fFd, buffer, sizeof buffer, 0);
            if (n > 0) {
                c.fBuffer.append(buffer, static_cast<size_t>(n));
                any = true;
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            if (n < 0 && errno == EINTR) continue;
            closed = true;
            break;
        }
        if (!Serve(c)) closed = true;
        if (closed) {
            ::close(c.fFd);
            fConnections.erase(fConnections.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    if (fds[0].revents & POLLIN) {
        for (;;) {
            const int fd = ::accept4(fListen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) break;
            fConnections.push_back({fd, {}});
            any = true;
        }
    }
    return any;
}

bool TcsProgressCallback::Serve(Connection& aConnection) {
    std::string& b = aConnection.fBuffer;
    size_t at = 0;
    while (b.size() - at >= kFrameHeader) {
        const auto message = static_cast<uint32_t>(GetLE(b.data() + at, 4));
        const auto wParam = static_cast<uint32_t>(GetLE(b.data() + at + 4, 4));
        const auto lParam = static_cast<int64_t>(GetLE(b.data() + at + 8, 8));
        std::string block;
        size_t length = kFrameHeader;
        if (message == kCopyDataMessage) {
            if (lParam < 0 || lParam > kMaxBlock) return false;
            if (b.size() - at - kFrameHeader < static_cast<size_t>(lParam)) break;
            block.assign(b, at + kFrameHeader, static_cast<size_t>(lParam));
            length += static_cast<size_t>(lParam);
        }
        at += length;
        std::string answer;
        PutLE(answer, static_cast<uint32_t>(Dispatch(message, wParam, lParam, block)), 4);
        (void)::send(aConnection.fFd, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
    b.erase(0, at);
    return true;
}

int TcsProgressCallback::Dispatch(uint32_t aMessage, uint32_t aWParam, int64_t aLParam, const std::string& aBlock) {
    TcsProgress& p = fOwner;
    const auto live = [&p] { return !p.fCancelled && p.Control() != nullptr; };
    try {
        if (aMessage == kProgressMessage) {
            if (live()) switch (aWParam) {
                    case 1: p.Open({}, {}, {}, {}, aLParam); break;
                    case 2: p.Next(aLParam); break;
                    case 3: p.Close(); break;
                    case 4: p.AddMax(aLParam); break;
                    default: break;
                }
        } else if (aMessage == kCopyDataMessage && aWParam == kProgressMessage && !aBlock.empty()) {
            const auto kind = static_cast<unsigned char>(aBlock[0]);
            // The length counts the terminating zero; a block of one byte or less is empty.
            const std::string_view raw(aBlock.data() + 1, aBlock.size() - 1);
            if (raw.size() > 1) {
                std::string text;
                xml::AppendWindows1251AsUTF8(raw.data(), std::min(raw.find('\0'), raw.size()), text);
                if (kind == 5) {
                    p.CallbackResult = text;
                } else if (live()) {
                    switch (kind) {
                        case 1: p.SetText(text); break;
                        case 2: p.SetText({}, text); break;
                        case 3: p.SetText({}, {}, text); break;
                        case 4: p.SetText({}, {}, {}, text); break;
                        default: break;
                    }
                }
            }
        }
    } catch (...) {
        // A cancel raised by the call: the answer below tells the other process.
    }
    return p.fCancelled ? 0 : 1;
}

std::string TcsProgress::GetCallbackWnd() {
    if (!fCallback) fCallback = std::make_unique<TcsProgressCallback>(*this);
    return fCallback->Name();
}

bool TcsProgress::ProcessCallbacks(int aWaitMs) { return fCallback && fCallback->Poll(aWaitMs); }

bool ProcessEnded(int aProcessId, std::optional<int>& aExitCode) {
    aExitCode.reset();
    if (aProcessId <= 0) return true;
    int status = 0;
    const pid_t r = ::waitpid(aProcessId, &status, WNOHANG);
    if (r == aProcessId) {
        if (WIFEXITED(status))
            aExitCode = WEXITSTATUS(status);
        else if (WIFSIGNALED(status))
            aExitCode = 128 + WTERMSIG(status);
        return true;
    }
    if (r == 0) return false;
    // Not a child of ours: alive while it can be signalled; its code cannot be read.
    return !(::kill(aProcessId, 0) == 0 || errno == EPERM);
}

int ModalWaitForProcess(TcsProgress& aProgress, int aProcessId, const std::function<int()>& aHandleOne,
                        const std::function<bool()>& aTerminating) {
    for (;;) {
        if (aHandleOne)
            if (const int result = aHandleOne(); result != 0) return result;
        aProgress.ProcessCallbacks(10);
        std::optional<int> code;
        if (ProcessEnded(aProcessId, code)) {
            // What the process sent before it ended is still served.
            while (aProgress.ProcessCallbacks(0)) {
            }
            return (!code || *code <= 0) ? 1 : 2;
        }
        if (aTerminating && aTerminating()) return 2;
    }
}

TcsProgressRemote::TcsProgressRemote(const std::string& aName) {
    sockaddr_un address{};
    if (!FillAddress(aName, address)) throw Exception("Неверное имя канала прогресса: " + aName);
    fSocket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fSocket < 0 || ::connect(fSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if (fSocket >= 0) ::close(fSocket);
        throw Exception("Нет связи с каналом прогресса " + aName + ": " + std::strerror(error));
    }
}

TcsProgressRemote::~TcsProgressRemote() {
    if (fSocket >= 0) ::close(fSocket);
}

int TcsProgressRemote::Send(uint32_t aMessage, uint32_t aWParam, int64_t aLParam, std::string_view aBlock) {
    std::string frame;
    PutLE(frame, aMessage, 4);
    PutLE(frame, aWParam, 4);
    PutLE(frame, static_cast<uint64_t>(aLParam), 8);
    frame.append(aBlock);
    size_t sent = 0;
    while (sent < frame.size()) {
        const ssize_t n = ::send(fSocket, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return -1;
        sent += static_cast<size_t>(n);
    }
    char answer[4];
    size_t got = 0;
    while (got < sizeof answer) {
        const ssize_t n = ::recv(fSocket, answer + got, sizeof answer - got, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return -1;
        got += static_cast<size_t>(n);
    }
    return static_cast<int>(GetLE(answer, 4));
}

int TcsProgressRemote::Open(int64_t aMax) { return Send(kProgressMessage, 1, aMax); }
int TcsProgressRemote::Next(int64_t aIncrement) { return Send(kProgressMessage, 2, aIncrement); }
int TcsProgressRemote::Close() { return Send(kProgressMessage, 3, 0); }
int TcsProgressRemote::AddMax(int64_t aMaxInc) { return Send(kProgressMessage, 4, aMaxInc); }

int TcsProgressRemote::SetText(int aKind, std::string_view aText) {
    std::string block(1, static_cast<char>(aKind));
    block += xml::UTF8ToWindows1251(aText);
    block.push_back('\0');
    return Send(kCopyDataMessage, kProgressMessage, static_cast<int64_t>(block.size()), block);
}

}  // namespace tmi
