#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// The slow work of a model that lives on the main thread, one piece at a time:
// the work runs on a task and returns what the model does with its result, which
// runs on the main thread while the model lives. A failure comes back as its words.
template <class Owner>
class ModelWork {
public:
    using Ending = std::function<void(Owner&)>;

    explicit ModelWork(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    bool isRunning() const { return isRunning_; }

    void run(std::weak_ptr<Owner> owner, std::function<Ending()> work,
             std::function<void(Owner&, const std::string&)> failed) {
        isRunning_ = true;
        task_.emplace(Task<void>::spawn([this, owner, work = std::move(work), failed = std::move(failed)] {
            Ending ending;
            try {
                ending = work();
            } catch (const Cancelled&) {
                return;
            } catch (const std::exception& error) {
                ending = [failed, words = std::string(error.what())](Owner& self) { failed(self, words); };
            }
            mainQueue_.post([this, owner, ending = std::move(ending)] {
                // The model owns this object: while it lives, so does this.
                if (auto self = owner.lock()) {
                    isRunning_ = false;
                    ending(*self);
                }
            });
        }));
    }

private:
    MainQueue& mainQueue_;
    bool isRunning_ = false;
    std::optional<Task<void>> task_;
};

}  // namespace vorlen::app
