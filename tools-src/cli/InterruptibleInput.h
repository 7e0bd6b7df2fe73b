#pragma once

#include <array>
#include <streambuf>

#include "StopSignal.h"

namespace quillmar::cli {

/// Reads a file descriptor, which it does not own, until its end or until the wish to stop.
class InterruptibleInput : public std::streambuf {
 public:
  InterruptibleInput(int descriptor, const StopSignal& stop);

 protected:
  int_type underflow() override;

 private:
  int descriptor_;
  const StopSignal& stop_;
  std::array<char, 4096> buffer_{};
};

}  // namespace quillmar::cli
