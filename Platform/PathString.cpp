// Taking paths apart and putting them together; pure text.
#include "Platform/PathString.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace sevrin::platform {

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

// The path less the separators at its end; the root keeps one.
std::string_view withoutTrailingSeparators(std::string_view path) noexcept {
    const std::size_t last = path.find_last_not_of('/');
    if (last == kNowhere) return path.substr(0, path.empty() ? 0 : 1);
    return path.substr(0, last + 1);
}

std::vector<std::string_view> componentsOf(std::string_view path) {
    std::vector<std::string_view> components;
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (end > start) components.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

std::string joined(bool isAbsolute, const std::vector<std::string_view>& components) {
    std::string result(isAbsolute ? 1 : 0, '/');
    for (const std::string_view component : components) {
        if (!result.empty() && result.back() != '/') result += '/';
        result += component;
    }
    return result;
}

}  // namespace

std::string_view basename(std::string_view path) noexcept {
    const std::string_view name = lastPathComponent(path);
    return name.empty() ? "." : name;
}

std::string_view dirname(std::string_view path) noexcept {
    const std::string_view item = withoutTrailingSeparators(path);
    const std::size_t separator = item.rfind('/');
    if (separator == kNowhere) return ".";
    return withoutTrailingSeparators(item.substr(0, separator + 1));
}

std::string_view lastPathComponent(std::string_view path) noexcept {
    const std::string_view item = withoutTrailingSeparators(path);
    if (item == "/") return item;
    const std::size_t separator = item.rfind('/');
    return separator == kNowhere ? item : item.substr(separator + 1);
}

std::string_view pathExtension(std::string_view path) noexcept {
    const std::string_view name = lastPathComponent(path);
    const std::size_t point = name.rfind('.');
    if (point == kNowhere || point == 0) return {};
    return name.substr(point + 1);
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
    const bool isAbsolute = path.empty() ? component.starts_with('/') : path.front() == '/';
    std::vector<std::string_view> components = componentsOf(path);
    const std::vector<std::string_view> added = componentsOf(component);
    components.insert(components.end(), added.begin(), added.end());
    return joined(isAbsolute, components);
}

std::string stringByStandardizingPath(std::string_view path) {
    const std::string expanded = stringByExpandingTildeInPath(path);
    const bool isAbsolute = expanded.starts_with('/');
    std::vector<std::string_view> kept;
    for (const std::string_view component : componentsOf(expanded)) {
        if (component == ".") continue;
        if (component != "..") {
            kept.push_back(component);
        } else if (!kept.empty() && kept.back() != "..") {
            kept.pop_back();
        } else if (!isAbsolute) {
            kept.push_back(component);
        }
    }
    if (kept.empty() && !isAbsolute && !expanded.empty()) return ".";
    return joined(isAbsolute, kept);
}

}  // namespace sevrin::platform
