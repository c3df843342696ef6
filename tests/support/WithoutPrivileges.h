// Runs a part of a test as a user whom file permissions bind, also where the tests run as root.
#pragma once

#include <unistd.h>

namespace oocpctest {

/// While it lives, the process has no right to override permissions. Make what the test needs
/// before; only what everyone may reach is reachable then.
class WithoutPrivileges {
 public:
  WithoutPrivileges() {
    if (!wasRoot_) return;
    constexpr uid_t kNobody = 65534;
    bound_ = ::seteuid(kNobody) == 0;
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;
  ~WithoutPrivileges() {
    if (wasRoot_ && ::seteuid(0) != 0) ::_exit(99);
  }

  /// False where the system does not let root step down; permissions can't be tested then.
  [[nodiscard]] bool IsBound() const { return bound_; }

 private:
  bool wasRoot_ = ::geteuid() == 0;
  bool bound_ = true;
};

}  // namespace oocpctest
