// The configuration store: objects of named values that outlive the daemon and the host. Declarations only; a platform
// library provides them. Any thread; an object belongs to one at a time. Every operation that returns a status returns
// 0 or a positive errno value.
#pragma once

namespace ConfigStore {

struct Store;
struct Object;

/// Open the store. `flags` must be 0.
int GetStore(int flags, Store **store);
/// Make an object, which is nowhere but in memory until it is committed, from the JSON text of its values.
int CreateObject(const char *key, const char *group, const char *component, const char *identity, const char *json,
                 Object **object);
/// Fetch the object that was last committed under an address; ENOENT when none was.
int Get(Store *store, const char *key, const char *group, const char *component, const char *identity, Object **object);
/// Set the value called `name` of an object to a copy of `value`.
int SetValueStr(Object *object, const char *name, const char *value);
/// A new copy of the value called `name`, which the caller frees with free(); ENOENT when there is none.
int GetValueStr(const Object *object, const char *name, char **value);
/// Commit an object: from then on the store has all of it, also after a crash; until then all of the one before.
int SetCachedData(Store *store, const Object *object);
/// Release an object or a store; null does nothing.
void DestroyConfigStoreObject(Object *object);
void DestroyStore(Store *store);

}  // namespace ConfigStore
