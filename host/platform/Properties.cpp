// SPDX-License-Identifier: Apache-2.0
#include <android-base/thread_annotations.h>
#include <cutils/properties.h>
#include <host/control.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string_view>

namespace qoz::host {
namespace {

// The properties by name.
struct Store {
    std::mutex lock;
    std::map<std::string, std::string, std::less<>> values GUARDED_BY(lock);
};

// Applies the rules of the platform for property names.
bool isPropertyName(std::string_view name) {
    const auto allowed = [](unsigned char c) {
        return isalnum(c) != 0 || strchr("._-@:", c) != nullptr;
    };
    return !name.empty() && name.front() != '.' && name.back() != '.' &&
           name.find("..") == std::string_view::npos &&
           std::all_of(name.begin(), name.end(), allowed);
}

bool isProperty(std::string_view name, std::string_view value) {
    return isPropertyName(name) && value.size() < PROPERTY_VALUE_MAX;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    const auto last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

// Reads name=value lines into the store. At the first invalid line it stops, sets `error` and
// returns false.
bool read(std::istream& lines, Store& store, std::string* error) EXCLUDES(store.lock) {
    std::string raw;
    for (int number = 1; std::getline(lines, raw); ++number) {
        const std::string line = trimmed(raw);
        if (line.empty() || line.front() == '#') continue;
        const auto equals = line.find('=');
        const std::string name = trimmed(line.substr(0, equals));
        const std::string value =
            equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
        if (equals == std::string::npos || !isProperty(name, value)) {
            *error = "line " + std::to_string(number) + " is not name=value: " + line;
            return false;
        }
        const std::lock_guard lock(store.lock);
        store.values[name] = value;
    }
    return true;
}

// Creates the store and loads the file that QOZ_PROPERTIES names. Because this happens before the
// first access, properties that a test or a tool sets replace those in the file.
Store* loadedStore() {
    auto* made = new Store;
    const char* path = getenv("QOZ_PROPERTIES");
    if (path == nullptr) return made;
    std::ifstream file(path);
    std::string error = "cannot be read";
    if (!file || !read(file, *made, &error)) {
        fprintf(stderr, "QOZ_PROPERTIES: %s: %s\n", path, error.c_str());
    }
    return made;
}

// Never destroyed, because detached threads may still read properties when the process exits.
Store& store() {
    static auto* instance = loadedStore();
    return *instance;
}

// Returns the value of a property, or an empty string if it is not set.
std::string valueOf(const char* name) {
    Store& all = store();
    const std::lock_guard lock(all.lock);
    const auto found = all.values.find(std::string_view(name));
    return found == all.values.end() ? "" : found->second;
}

}  // namespace

bool setProperty(const std::string& name, const std::string& value) {
    if (!isProperty(name, value)) return false;
    Store& all = store();
    const std::lock_guard lock(all.lock);
    all.values[name] = value;
    return true;
}

void clearProperties() {
    Store& all = store();
    const std::lock_guard lock(all.lock);
    all.values.clear();
}

bool loadProperties(const std::string& path, std::string* error) {
    std::ifstream file(path);
    if (!file) {
        *error = path + " cannot be read";
        return false;
    }
    return read(file, store(), error);
}

}  // namespace qoz::host

int property_get(const char* key, char* value, const char* default_value) {
    std::string found = qoz::host::valueOf(key);
    if (found.empty() && default_value != nullptr) found = default_value;
    found.resize(std::min<size_t>(found.size(), PROPERTY_VALUE_MAX - 1));
    memcpy(value, found.c_str(), found.size() + 1);
    return static_cast<int>(found.size());
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    const std::string value = qoz::host::valueOf(key);
    const auto isOneOf = [&value](std::initializer_list<std::string_view> words) {
        return std::find(words.begin(), words.end(), value) != words.end();
    };
    if (isOneOf({"0", "n", "no", "false", "off"})) return 0;
    if (isOneOf({"1", "y", "yes", "true", "on"})) return 1;
    return default_value;
}
