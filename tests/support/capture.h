#pragma once

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

// Collects what goes to standard output or standard error, at the level of the file descriptor, until text() is called.
class Capture {
public:
    static Capture output() { return Capture(STDOUT_FILENO); }

    static Capture error() { return Capture(STDERR_FILENO); }

    ~Capture()
    {
        if (before_ >= 0) finish();
        std::fclose(file_);
    }

    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // All of it; ends the capture.
    std::string text()
    {
        finish();
        std::rewind(file_);
        std::string all;
        char piece[4096];
        while (const std::size_t n = std::fread(piece, 1, sizeof piece, file_))
            all.append(piece, n);
        return all;
    }

private:
    explicit Capture(int descriptor)
        : descriptor_(descriptor), before_(dup(descriptor)), file_(std::tmpfile())
    {
        flush();
        dup2(fileno(file_), descriptor_);
    }

    static void flush()
    {
        std::cout.flush();
        std::cerr.flush();
        std::fflush(stdout);
        std::fflush(stderr);
    }

    void finish()
    {
        flush();
        dup2(before_, descriptor_);
        close(before_);
        before_ = -1;
    }

    int descriptor_;
    int before_;
    std::FILE* file_;
};

struct Heard {
    std::string out;
    std::string err;
};

// What f says on both streams. Expectations belong behind the call: inside, their own messages would be collected.
template <class F>
Heard listen(const F& f)
{
    Capture out = Capture::output(), err = Capture::error();
    f();
    return {out.text(), err.text()};
}
