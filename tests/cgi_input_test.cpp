// A body the program refuses unread still leaves its input empty: a web
// server that feeds it through a socket loses the answer otherwise.
#include "tests/fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using CgiInput = CameraTest;

TEST_F(CgiInput, RefusedBodyIsTakenOffTheInput)
{
    // More than a pipe holds: the writer finishes only if the program reads.
    const std::string body(70000, ' ');
    struct Case { const char* contentLength; };
    for (const Case& c : {Case{"CONTENT_LENGTH=70000"}, Case{"CONTENT_TYPE=application/soap+xml"}}) {
        std::string fifo = path("body.fifo"), out = path("answer.out");
        unlink(fifo.c_str());
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        // Held open both ways, the pipe lets the program's open return; once
        // the writing end is open the program is its only reader.
        int both = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(both, 0);
        pid_t pid = spawnService({"HOST=192.168.0.100", c.contentLength}, fifo, out);
        int fd = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
        close(both);
        ASSERT_GE(pid, 0);
        void (*previous)(int) = signal(SIGPIPE, SIG_IGN);
        size_t written = 0;
        while (fd >= 0 && written < body.size()) {
            ssize_t n = write(fd, body.data() + written, body.size() - written);
            if (n <= 0)
                break;
            written += (size_t)n;
        }
        if (fd >= 0)
            close(fd);
        signal(SIGPIPE, previous);
        EXPECT_TRUE(finished(pid)) << c.contentLength;
        EXPECT_EQ(written, body.size()) << c.contentLength;
        EXPECT_EQ(readFile("answer.out").rfind("Status: 400 ", 0), 0u) << c.contentLength;
    }
}

}  // namespace
