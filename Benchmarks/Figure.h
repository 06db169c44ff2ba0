#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace corvid::bench {

/// Whether a smaller or a greater value is the better one.
enum class Better { Lower, Higher };

/// One measured figure. `goal` is the worst value that is still good; nothing for a figure that is
/// only reported.
struct Figure {
    std::string name;
    double value;
    std::string unit;
    std::optional<double> goal;
    Better better = Better::Lower;
};

/// Prints `figure` to standard output as one line of JSON, which script/bench collects. One thread.
inline void print(const Figure& figure) {
    const nlohmann::ordered_json line{
        {"name", figure.name},
        {"value", figure.value},
        {"unit", figure.unit},
        {"goal", figure.goal ? nlohmann::ordered_json(*figure.goal) : nlohmann::ordered_json()},
        {"better", figure.better == Better::Lower ? "lower" : "higher"}};
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);
}

/// True when the command line holds `--quick`: fewer rounds, the same figures.
inline bool isQuick(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--quick") {
            return true;
        }
    }
    return false;
}

/// Seconds since `start`.
inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Keeps the compiler from dropping the computation of `value`.
template <typename T>
inline void keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

} // namespace corvid::bench
