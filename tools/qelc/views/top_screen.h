// The terminal of the live view. One at a time.
#pragma once

#include "tools/qelc/views/top_page.h"

#include <vector>

enum class top_key { none, quit, sort, up, down, enter };

// Takes the terminal, and gives it back as it was.
class top_screen {
public:
    // IS_OPEN is false if the terminal cannot be drawn on.
    top_screen();
    ~top_screen();
    top_screen(const top_screen &) = delete;
    top_screen &operator=(const top_screen &) = delete;

    bool is_open() const { return screen_ != nullptr; }
    size_t rows() const;
    size_t columns() const;

    // Only what has changed is sent to the terminal, so nothing flickers.
    void draw(const std::vector<screen_line> &lines);

    // Waits for a key, at most so many milliseconds.
    static top_key read_key(int milliseconds);

private:
    void *screen_ = nullptr; // SCREEN of the library
};
