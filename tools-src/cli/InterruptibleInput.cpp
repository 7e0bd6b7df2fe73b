#include "InterruptibleInput.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace quillmar::cli {

InterruptibleInput::InterruptibleInput(int descriptor, const StopSignal& stop) : descriptor_(descriptor), stop_(stop) {}

InterruptibleInput::int_type InterruptibleInput::underflow() {
  for (;;) {
    pollfd entries[] = {{descriptor_, POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
    if (poll(entries, 2, -1) < 0 && errno != EINTR) {
      return traits_type::eof();
    }
    if (stop_.raised()) {
      return traits_type::eof();
    }
    if (entries[0].revents == 0) {
      continue;
    }
    const ssize_t count = read(descriptor_, buffer_.data(), buffer_.size());
    if (count > 0) {
      setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
      return traits_type::to_int_type(buffer_.front());
    }
    if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      return traits_type::eof();
    }
  }
}

}  // namespace quillmar::cli
