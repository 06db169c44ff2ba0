#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// Writes one JSON object as text, member by member, onto the end of a string: for answers that go
/// out a hundred thousand at a time. Member names are written as they are: plain ASCII. Bytes of a
/// value that are not UTF-8 become U+FFFD. One thread.
class JSONObjectWriter {
public:
    /// Begins the object. `out` must outlive the writer.
    explicit JSONObjectWriter(std::string& out);

    void add(std::string_view name, bool value);
    void add(std::string_view name, std::size_t value);
    void add(std::string_view name, std::string_view value);
    void add(std::string_view name, const char* value) { add(name, std::string_view(value)); }
    void add(std::string_view name, const std::vector<std::string_view>& values);
    void add(std::string_view name, const std::vector<int>& values);
    void addNull(std::string_view name);
    template <class T>
    void add(std::string_view name, const std::optional<T>& value) {
        value ? add(name, *value) : addNull(name);
    }

    /// Begins a member that is an object; its writer must finish() before the next member here.
    JSONObjectWriter addObject(std::string_view name);

    /// Ends the object.
    void finish() { out_ += '}'; }

private:
    void addName(std::string_view name);

    std::string& out_;
    bool isFirst_ = true;
};

} // namespace corvid
