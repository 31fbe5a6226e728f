#pragma once

#include <memory>

#include "base/Result.h"

namespace nulo::service {

/// A running nulo-decoder, which decodes any number of files at once. Any thread. Killed when it is
/// destroyed.
class DecoderProcess {
  public:
    /// The one that runs, or else a new one.
    static Result<std::shared_ptr<DecoderProcess>> running();
    /// Has the next caller of running() start another; this one ends with its last owner.
    static void retire();

    ~DecoderProcess();
    DecoderProcess(const DecoderProcess&) = delete;
    DecoderProcess& operator=(const DecoderProcess&) = delete;

    /// Has it decode the file that is open there. Returns the caller's end of a socket for its
    /// messages, below 0 when the process is gone.
    int decode(int file) const;

  private:
    DecoderProcess(int process, int socket) : m_process(process), m_socket(socket) {}
    static Result<std::shared_ptr<DecoderProcess>> start();
    bool isGone() const;

    const int m_process;  // a descriptor of the process
    const int m_socket;
};

}  // namespace nulo::service
