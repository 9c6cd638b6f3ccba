// The callback socket of a progress: a local stream socket that stands where a hidden
// window would receive another process's messages. Frames, all numbers little-endian:
// message number (4 bytes), wParam (4), lParam (8); a copy-data message (74, wParam 11025)
// is followed by lParam bytes: the kind, then the text in the 8-bit code page with its
// terminating zero. Every frame is answered with 4 bytes: 1 while the progress is not
// cancelled, 0 once it is.
#pragma once

#include <string>
#include <vector>

#include "csProgress.h"

namespace tmi {

class TcsProgressCallback {
public:
    explicit TcsProgressCallback(TcsProgress& aOwner);
    ~TcsProgressCallback();
    TcsProgressCallback(const TcsProgressCallback&) = delete;
    TcsProgressCallback& operator=(const TcsProgressCallback&) = delete;

    [[nodiscard]] const std::string& Name() const noexcept { return fName; }
    // Accepts and serves what has arrived, waiting at most aWaitMs; whether anything came.
    bool Poll(int aWaitMs);

    // A copy-data block beyond this is no progress text: the connection is dropped.
    static constexpr int64_t kMaxBlock = 1 << 20;

private:
    struct Connection {
        int fFd;
        std::string fBuffer;
    };
    // Serves the complete frames of the buffer; false when the peer sent nonsense.
    bool Serve(Connection& aConnection);
    int Dispatch(uint32_t aMessage, uint32_t aWParam, int64_t aLParam, const std::string& aBlock);

    TcsProgress& fOwner;
    std::string fName;
    int fListen = -1;
    bool fPolling = false;
    std::vector<Connection> fConnections;
};

}  // namespace tmi
