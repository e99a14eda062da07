#include "app/Interrupts.hpp"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <mutex>
#include <thread>
#include <vector>

#include "core/base/Task.hpp"

namespace vorlen::app {

struct Interrupts::Listener::State {
    std::function<void()> onStop;
    std::optional<std::string> cleanupHint;
    int interrupts = 0;
};

namespace {

// The listeners, newest last. A listener's stop runs under this lock, so that a
// listener never goes away while its stop runs.
std::mutex listenersMutex;
std::vector<Interrupts::Listener::State*> listeners;

sigset_t interruptSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

[[noreturn]] void endNow() { ::_exit(130); }

void say(const std::string& line) {
    std::string text = "\n" + line + "\n";
    // Only a write: the process may end in the next moment.
    [[maybe_unused]] auto written = ::write(STDERR_FILENO, text.data(), text.size());
}

void onInterrupt() {
    std::lock_guard lock(listenersMutex);
    if (listeners.empty()) endNow();
    auto& listening = *listeners.back();
    ++listening.interrupts;
    if (listening.interrupts == 1) {
        listening.onStop();
    } else if (listening.interrupts == 2 && listening.cleanupHint) {
        say(*listening.cleanupHint);
    } else {
        endNow();
    }
}

}  // namespace

void Interrupts::install() {
    static std::once_flag installed;
    std::call_once(installed, [] {
        sigset_t signals = interruptSignals();
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::thread([signals] {
            for (;;) {
                int received = 0;
                if (sigwait(&signals, &received) == 0) onInterrupt();
            }
        }).detach();
    });
}

Interrupts::Listener::Listener(std::function<void()> onStop, std::optional<std::string> cleanupHint)
    : state_(new State{std::move(onStop), std::move(cleanupHint)}) {
    std::lock_guard lock(listenersMutex);
    listeners.push_back(state_);
}

Interrupts::Listener::~Listener() {
    {
        std::lock_guard lock(listenersMutex);
        std::erase(listeners, state_);
    }
    delete state_;
}

void Interrupts::Listener::setCleanupHint(std::optional<std::string> hint) {
    std::lock_guard lock(listenersMutex);
    state_->cleanupHint = std::move(hint);
}

void Interrupts::run(const std::function<void()>& work, std::optional<std::string> cleanupHint) {
    auto task = Task<void>::spawn(work);
    Listener listener([&task] { task.cancel(); }, std::move(cleanupHint));
    task.value();
}

}  // namespace vorlen::app
