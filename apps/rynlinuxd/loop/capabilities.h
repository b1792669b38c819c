// The rights of this process. Its one thread.
#pragma once

namespace rynlinuxd {

/// Put aside the right to reach every file, which few sources need and others must not use. Nothing for root.
void LowerCapabilities();

/// Takes up `capability` (CAP_...) where it was put aside, until it goes.
class RaisedCapability {
 public:
  explicit RaisedCapability(int capability);
  ~RaisedCapability();
  RaisedCapability(const RaisedCapability &) = delete;
  RaisedCapability &operator=(const RaisedCapability &) = delete;

 private:
  const int capability_;
};

/// Give up every capability for good; root keeps that of reaching the daemon's socket and files. 0 or an errno value.
int DropCapabilities();

/// In a process of its own: give up every capability but `capability`. 0 or an errno value.
int KeepOnlyCapability(int capability);

}  // namespace rynlinuxd
