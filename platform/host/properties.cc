// The workstation's libcutils: system properties that live in this process.
#pragma GCC visibility push(default)
#include <cutils/properties.h>
#pragma GCC visibility pop

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace {

struct PropertyStore {
  std::mutex mutex;
  std::map<std::string, std::string, std::less<>> values;
};

// Never destroyed: a library may read a property while the process ends.
PropertyStore& Properties() {
  static auto* const store = new PropertyStore;
  return *store;
}

// Copies the property's value; an unset property is empty.
void Copy(const char* key, char (&value)[PROPERTY_VALUE_MAX]) {
  PropertyStore& store = Properties();
  const std::lock_guard lock(store.mutex);
  const auto found = store.values.find(std::string_view(key));
  value[found == store.values.end() ? 0 : found->second.copy(value, sizeof(value) - 1)] = '\0';
}

}  // namespace

// Reads numbers as the platform does, which is strtoimax with base 0: blanks before the
// number, a sign, 0x for hexadecimal, a leading 0 for octal; what follows the digits is
// ignored.
int32_t property_get_int32(const char* key, int32_t default_value) {
  if (key == nullptr) {
    return default_value;
  }
  char value[PROPERTY_VALUE_MAX];
  Copy(key, value);
  const int saved_errno = errno;
  char* end = value;
  const intmax_t number = std::strtoimax(value, &end, 0);  // saturates, so stays out of range
  errno = saved_errno;
  const bool usable = end != value && number >= std::numeric_limits<int32_t>::min() &&
                      number <= std::numeric_limits<int32_t>::max();
  return usable ? static_cast<int32_t>(number) : default_value;
}

int property_set(const char* key, const char* value) {
  if (key == nullptr || *key == '\0') {
    return -1;
  }
  const std::string_view text = value != nullptr ? value : "";
  if (text.size() >= PROPERTY_VALUE_MAX) {
    return -1;
  }
  try {
    PropertyStore& store = Properties();
    const std::lock_guard lock(store.mutex);
    store.values.insert_or_assign(key, std::string(text));
    return 0;
  } catch (const std::exception&) {  // out of memory: nothing has changed
    return -1;
  }
}
