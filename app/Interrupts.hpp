#pragma once

#include <functional>
#include <optional>
#include <string>

namespace vorlen::app {

// Ctrl-C (SIGINT) and SIGTERM for the whole process. They are blocked in every
// thread, and one thread of their own takes them and tells whoever listens.
//
// The first interrupt calls the listener's stop. A job whose stop goes on to
// clean up the bucket has a clean-up hint: a second interrupt prints it, and a
// third ends the process at once with status 130, leaving the bucket as it is.
// Without a hint the second interrupt ends the process at once. With nobody
// listening, an interrupt ends the process at once.
class Interrupts {
public:
    // Call first in main, before any thread starts (libsecret's D-Bus threads,
    // Qt's, curl's): a thread inherits the blocked signals of the thread that
    // starts it, so only the interrupt thread ever takes them.
    static void install();

    inline static const std::string bucketCleanupHint =
        "Cleaning up the bucket; press Ctrl-C again to leave it as it is.";
    // How a command that cleans up the bucket takes Ctrl-C, for its help.
    inline static const std::string bucketCleanupHelp =
        "Ctrl-C or SIGTERM stops it, and Vorlen deletes what it had uploaded, then ends with status 130. "
        "A second Ctrl-C during that clean-up says \"" + bucketCleanupHint + "\"; a third ends at once, with "
        "status 130, and leaves the bucket as it is.";

    // Listens while it lives; the newest listener is the one told. `onStop` runs
    // on the interrupt thread: it must be quick (cancel a task, post to a queue).
    class Listener {
    public:
        explicit Listener(std::function<void()> onStop, std::optional<std::string> cleanupHint = std::nullopt);
        ~Listener();
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;

        // Changes the hint, e.g. once a publish has begun to upload.
        void setCleanupHint(std::optional<std::string> hint);

        struct State;

    private:
        State* state_;
    };

    // Runs work on a task that the first interrupt cancels, and passes on its
    // result or failure (Cancelled once its clean-up has ended).
    static void run(const std::function<void()>& work, std::optional<std::string> cleanupHint = std::nullopt);
};

}  // namespace vorlen::app
