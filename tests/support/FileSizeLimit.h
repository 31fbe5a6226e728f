#pragma once

#include <sys/resource.h>

#include <csignal>

namespace nulo {

/// While it lives, no file of this process grows beyond the limit: writing fails as on a full disk.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit limit{bytes, m_old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }

  private:
    rlimit m_old{};
    decltype(SIG_DFL) m_handler;
};

}  // namespace nulo
