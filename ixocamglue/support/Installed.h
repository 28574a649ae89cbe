// One installed service per type, for the life of a scope object: each test has its own machine.
#pragma once

#include <utility>

namespace ixocamglue {

// Installs `service` (not owned) until the scope ends, then puts the previous one back. Services are installed before
// any thread starts and removed after all have ended, so reading the slot needs no lock. Null: the machine has none.
// Nothing of it fails.
template <class Service>
class TInstalled {
 public:
  explicit TInstalled(Service& service) : FPrevious(std::exchange(Slot(), &service)) {}
  ~TInstalled() { Slot() = FPrevious; }
  TInstalled(const TInstalled&) = delete;
  TInstalled& operator=(const TInstalled&) = delete;

  static Service*& Slot();

 private:
  Service* const FPrevious;
};

}  // namespace ixocamglue

// A service in its header, behind its class: declares its slot and the free function that reads it.
#define IXO_DECLARE_SERVICE(Service, Reader) \
  template <>                                \
  Service*& TInstalled<Service>::Slot();     \
  [[nodiscard]] Service* Reader()

// Their one definition, in the service's .cpp file: one slot per process also when the library is shared.
#define IXO_DEFINE_SERVICE(Service, Reader) \
  template <>                               \
  Service*& TInstalled<Service>::Slot() {   \
    static Service* slot = nullptr;         \
    return slot;                            \
  }                                         \
  Service* Reader() { return TInstalled<Service>::Slot(); }
