#pragma once

#include <CorvidHostKit/Application.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace corvid::hostkit {

/// Writes every call down, and answers what the test says. The test may wait for a call.
class RecordingApplication : public Application {
public:
    std::function<std::string(const std::string& path)> onBadge = [](const std::string&) {
        return "synced";
    };
    std::function<std::vector<MenuItem>()> onMenu = [] { return std::vector<MenuItem>(); };
    std::function<void()> onAction = [] {};
    std::function<void()> onExtensionChanged = [] {};
    std::function<void()> onProblem = [] {};

    std::string badge(const std::string& path) override {
        record("badge " + path);
        return onBadge(path);
    }
    std::vector<MenuItem> menu(const std::vector<std::string>& paths,
                               bool operatingOnParent) override {
        record(std::string("menu") + joined(paths) + (operatingOnParent ? " (parent)" : ""));
        return onMenu();
    }
    void actionPerformed(const Click& click) override {
        record("action " + click.action + " \"" + click.title + "\"" + joined(click.paths));
        onAction();
    }
    void extensionChanged(const std::string& portName, bool isOpen) override {
        record((isOpen ? "open " : "closed ") + portName);
        onExtensionChanged();
    }
    void folderShown(const std::string& path) override { record("shown " + path); }
    void folderHidden(const std::string& path) override { record("hidden " + path); }
    void problem(const std::string& text) override {
        record("problem: " + text);
        onProblem();
    }

    std::vector<std::string> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    std::vector<std::string> takeCalls() {
        const std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }
    /// Waits until `call` was made; only a test that fails waits in vain.
    void waitFor(const std::string& call) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return std::ranges::find(calls_, call) != calls_.end(); });
    }

private:
    static std::string joined(const std::vector<std::string>& paths) {
        std::string text;
        for (const std::string& path : paths) {
            text += " " + path;
        }
        return text;
    }
    void record(std::string call) {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> calls_;
};

} // namespace corvid::hostkit
