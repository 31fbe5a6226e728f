#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "platform/Backends.h"

namespace nulo {
namespace {

/// Finds a function of the module that lies beside this program, of its version. Without the module
/// the program is not installed whole.
template <typename Function>
Function* functionOfModule(const char* name) {
    static void* const module = [] {
        std::error_code ignored;
        const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
        return dlopen((program.parent_path().parent_path() / "libexec/nulo-http.so").c_str(),
                      RTLD_NOW | RTLD_LOCAL);
    }();
    void* const function = module ? dlsym(module, name) : nullptr;
    if (!function) {
        std::fprintf(stderr, "nulo: cannot go on: %s\n", dlerror());
        std::abort();
    }
    return reinterpret_cast<Function*>(function);
}

class UpdateHttpOnDemand final : public UpdateHttp {
  public:
    explicit UpdateHttpOnDemand(MainQueue& mainQueue) : m_mainQueue(mainQueue) {}

    void get(const std::string& url, std::size_t limit, GetCompletion completion) override {
        real().get(url, limit, std::move(completion));
    }
    void download(const std::string& url, const std::filesystem::path& file, std::uintmax_t limit,
                  DownloadCompletion completion) override {
        real().download(url, file, limit, std::move(completion));
    }
    void cancel() override { real().cancel(); }

  private:
    UpdateHttp& real() {
        if (!m_real)
            m_real.reset(
                functionOfModule<UpdateHttp*(MainQueue&)>("nuloMakeUpdateHttp")(m_mainQueue));
        return *m_real;
    }

    MainQueue& m_mainQueue;
    std::unique_ptr<UpdateHttp> m_real;
};

}  // namespace

std::unique_ptr<HttpSession> makeHttpSession(HttpSessionDelegate& delegate) {
    return std::unique_ptr<HttpSession>(
        functionOfModule<HttpSession*(HttpSessionDelegate&)>("nuloMakeHttpSession")(delegate));
}

std::unique_ptr<UpdateHttp> makeUpdateHttp(MainQueue& mainQueue) {
    return std::make_unique<UpdateHttpOnDemand>(mainQueue);
}

}  // namespace nulo
