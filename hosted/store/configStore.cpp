// The configuration store in the host tree: configstore/COMPONENT/GROUP/KEY.json holds the committed values. Any
// thread.
#include "platform/configStore.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/store/flatJson.h"

namespace ConfigStore {

struct Store {};

struct Object {
  std::string path;  ///< below the host tree
  hosted::FlatJson values;
};

namespace {

constexpr const char *kFolder = "configstore/";

/// The file of an address. 0, or EINVAL: only objects without an identity have one.
int PathOf(const char *key, const char *group, const char *component, const char *identity, std::string *path) {
  if (key == nullptr || group == nullptr || component == nullptr || identity == nullptr || *identity != '\0') {
    return EINVAL;
  }
  *path = std::string(kFolder) + hosted::HostComponent(component) + "/" + hosted::HostComponent(group) + "/" +
          hosted::HostComponent(key) + ".json";
  return 0;
}

/// Run an operation; a failure to allocate inside of it becomes its status.
template <typename Operation>
int Guard(const Operation &operation) try {
  return operation();
} catch (const std::bad_alloc &) {
  return ENOMEM;
}

}  // namespace

int GetStore(int flags, Store **store) {
  *store = nullptr;
  if (flags != 0) return EINVAL;
  *store = new (std::nothrow) Store;
  return *store == nullptr ? ENOMEM : 0;
}

int CreateObject(const char *key, const char *group, const char *component, const char *identity, const char *json,
                 Object **object) {
  *object = nullptr;
  return Guard([&] {
    Object made;
    if (const int error = PathOf(key, group, component, identity, &made.path); error != 0) return error;
    if (json == nullptr || !hosted::ParseFlatJson(json, &made.values)) return EINVAL;
    *object = new Object(std::move(made));
    return 0;
  });
}

int Get(Store *store, const char *key, const char *group, const char *component, const char *identity,
        Object **object) {
  *object = nullptr;
  if (store == nullptr) return EINVAL;
  return Guard([&] {
    Object found;
    std::string text;
    if (const int error = PathOf(key, group, component, identity, &found.path); error != 0) return error;
    if (const int error = hosted::ReadHostText(found.path, &text); error != 0) return error;
    if (!hosted::ParseFlatJson(text, &found.values)) {
      hosted::Log("Cannot read %s: it is no JSON object of strings", hosted::HostTreePath(found.path).c_str());
      return EINVAL;
    }
    *object = new Object(std::move(found));
    return 0;
  });
}

int SetValueStr(Object *object, const char *name, const char *value) {
  if (object == nullptr || name == nullptr || value == nullptr) return EINVAL;
  return Guard([&] {
    std::string refused;
    const int error = hosted::ReadHostText(std::string(kFolder) + "REFUSE", &refused);
    if (error != 0 && error != ENOENT) return error;
    if (error == 0 && refused == name) return EPERM;
    hosted::SetMember(name, value, &object->values);
    return 0;
  });
}

int GetValueStr(const Object *object, const char *name, char **value) {
  *value = nullptr;
  if (object == nullptr || name == nullptr) return EINVAL;
  for (const auto &[known, text] : object->values) {
    if (known != name) continue;
    *value = strdup(text.c_str());
    return *value == nullptr ? ENOMEM : 0;
  }
  return ENOENT;
}

int SetCachedData(Store *store, const Object *object) {
  if (store == nullptr || object == nullptr) return EINVAL;
  return Guard([&] { return hosted::WriteHostText(object->path, hosted::FormatFlatJson(object->values)); });
}

void DestroyConfigStoreObject(Object *object) {
  delete object;
}

void DestroyStore(Store *store) {
  delete store;
}

}  // namespace ConfigStore
