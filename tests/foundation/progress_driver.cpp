// Another process that drives a progress bar over its callback socket, for the tests.
// usage: tm_progress_driver SOCKET MODE
//   ok      open with 100, texts of every kind, ten steps, a callback result; exit 0
//   fail    a few steps, then exit 3
//   killed  a few steps, then killed by a signal
//   cancel  steps until the bar answers that it was cancelled; exit 0, printing "cancelled"
//   junk    a frame with an absurd block length, then exit 0
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "csProgress.h"

using namespace tmi;

int main(int argc, char** argv) {
    if (argc < 3) return 64;
    const std::string mode = argv[2];
    TcsProgressRemote remote(argv[1]);
    if (mode == "junk") {
        std::printf("%d\n", remote.Send(kCopyDataMessage, kProgressMessage, int64_t(1) << 40));
        return 0;
    }
    remote.Open(100);
    remote.SetText(3, "Заголовок");
    remote.SetText(2, "Сообщение");
    remote.SetText(1, "Шаг");
    remote.SetText(4, "Подпись");
    if (mode == "cancel") {
        for (int i = 0; i < 100000; ++i) {
            if (remote.Next(1) == 0) {
                std::printf("cancelled\n");
                return 0;
            }
            ::usleep(2000);
        }
        return 1;
    }
    for (int i = 0; i < (mode == "ok" ? 10 : 3); ++i) remote.Next(10);
    if (mode == "fail") return 3;
    if (mode == "killed") ::raise(SIGKILL);
    remote.SetText(5, "готово");
    remote.SetText(1, "");  // a text of its terminator alone is ignored
    return 0;
}
