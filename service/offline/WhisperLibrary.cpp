#ifdef NULO_HAS_WHISPER

#include "service/offline/WhisperLibrary.h"

#include <dlfcn.h>
#include <ggml-backend.h>
#include <unistd.h>
#include <whisper.h>

#include <filesystem>
#include <mutex>

namespace nulo::service {
namespace {

thread_local StoppableWork* workOfThread = nullptr;

/// Where whisper.cpp's libraries lie.
std::filesystem::path libraryFolder() {
    Dl_info facts{};
    if (dladdr(reinterpret_cast<const void*>(&ggml_backend_load), &facts) == 0)
        return {};
    return std::filesystem::path(facts.dli_fname).parent_path();
}

/// Whether there is a card to compute on; what a sandbox hides is not there.
bool hasGraphicsCard() {
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/dev/dri", error), end; !error && entry != end;
         entry.increment(error))
        if (entry->path().filename().string().starts_with("renderD") &&
            access(entry->path().c_str(), R_OK | W_OK) == 0)
            return true;
    return false;
}

}  // namespace

bool loadWhisperVariant() {
    static std::once_flag once;
    std::call_once(once, [] {
        const auto silence = [](ggml_log_level, const char*, void*) {};
        ggml_log_set(silence, nullptr);
        whisper_log_set(silence, nullptr);
        const std::filesystem::path folder = libraryFolder();
        ggml_backend_load_all_from_path(folder.c_str());
        std::error_code ignored;
        const auto forCards = folder / "vulkan/libggml-vulkan.so";
        if (hasGraphicsCard() && std::filesystem::exists(forCards, ignored))
            ggml_backend_load(forCards.c_str());
    });
    return ggml_backend_dev_by_type(GGML_BACKEND_DEVICE_TYPE_GPU) ||
           ggml_backend_dev_by_type(GGML_BACKEND_DEVICE_TYPE_IGPU);
}

StoppableWork::StoppableWork(const StillWanted& stillWanted) : m_stillWanted(stillWanted) {
    workOfThread = this;
}

StoppableWork::~StoppableWork() {
    workOfThread = nullptr;
}

bool StoppableWork::shouldStop(void* work) {
    constexpr auto askEvery = std::chrono::milliseconds(20);
    auto& self = *static_cast<StoppableWork*>(work);
    if (self.m_stopped)
        return true;
    const auto now = std::chrono::steady_clock::now();
    if (now < self.m_nextQuestion)
        return false;
    self.m_nextQuestion = now + askEvery;
    return self.m_stopped = !self.m_stillWanted();
}

}  // namespace nulo::service

/// whisper.cpp asks whether to go on between two passes of its model only, and a pass takes
/// seconds. The processor's variant asks at each step, but is told of no question to ask. Every
/// pass goes through this function of a shared library; a program's own of that name comes before
/// it.
extern "C" ggml_status ggml_backend_sched_graph_compute(ggml_backend_sched_t scheduler,
                                                        ggml_cgraph* graph) {
    using nulo::service::StoppableWork;
    using nulo::service::workOfThread;
    for (int i = 0; i < ggml_backend_sched_get_n_backends(scheduler); ++i) {
        ggml_backend_t backend = ggml_backend_sched_get_backend(scheduler, i);
        ggml_backend_dev_t device = ggml_backend_get_device(backend);
        void* set = device ? ggml_backend_reg_get_proc_address(ggml_backend_dev_backend_reg(device),
                                                               "ggml_backend_set_abort_callback")
                           : nullptr;
        if (set)
            reinterpret_cast<ggml_backend_set_abort_callback_t>(set)(
                backend, workOfThread ? &StoppableWork::shouldStop : nullptr, workOfThread);
    }
    static const auto compute = reinterpret_cast<decltype(&ggml_backend_sched_graph_compute)>(
        dlsym(RTLD_NEXT, "ggml_backend_sched_graph_compute"));
    return compute(scheduler, graph);
}

#endif
