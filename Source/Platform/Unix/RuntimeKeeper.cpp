#include "Platform/Unix/RuntimeKeeper.h"

#include <utility>

namespace corvid {

namespace {

void add(std::string& problems, const std::string& problem) {
    if (!problem.empty()) {
        problems += (problems.empty() ? "" : "; ") + problem;
    }
}

} // namespace

RuntimeKeeper::RuntimeKeeper(PortFolder& ports, VolumeFile::Publication& volume,
                             DispatchQueue& queue, Owner owner)
    : ports_(ports), volume_(volume), owner_(std::move(owner)),
      watcher_(ports.runtimeFolder(), queue, [this] { keep(); }) {}

void RuntimeKeeper::keep() {
    // The volume first: who has that has the right to all the rest.
    const auto volume = volume_.keep();
    const std::string names = ports_.keepNames();
    std::string problems;
    add(problems, volume.problem);
    add(problems, names);
    if (!volume.other && owner_.keepMore) {
        add(problems, owner_.keepMore());
    }
    if (!problems.empty()) {
        watcher_.lookAgain();
    }
    add(problems, watcher_.problem());
    if (problems != told_) {
        told_ = problems;
        owner_.tell(problems);
    }
    if (volume.other && owner_.volumeIsAnothers) {
        owner_.volumeIsAnothers();
    }
}

} // namespace corvid
