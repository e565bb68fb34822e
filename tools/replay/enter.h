// The key that lets a replay go on.
#pragma once

#include <poll.h>
#include <unistd.h>

namespace replay {

class Enter {
  public:
    // Whether it was pressed since the last time; an input that has ended says so for ever.
    [[nodiscard]] bool pressed() {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        while (!input_ended_ && poll(&input, 1, 0) > 0) {
            char key = 0;
            input_ended_ = read(STDIN_FILENO, &key, sizeof key) <= 0;
            if (key == '\n')
                return true;
        }
        return input_ended_;
    }

  private:
    bool input_ended_ = false;
};

} // namespace replay
