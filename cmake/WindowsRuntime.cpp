// Lets go, when a DLL is unloaded, of what the compiler's runtime has taken from Windows for it and
// would keep: slots of thread-local storage, events, semaphores. WindowsRuntime.cmake links this
// into a DLL in such a way that all its calls of these functions come here.
#include <atomic>
#include <cstddef>
#include <cstdint>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace {

/// A set of numbers below `kCount`, for any threads; others are forgotten. Needs no construction:
/// the runtime takes things before anything is constructed.
template <std::size_t kCount>
class NumberSet {
 public:
  void Add(std::size_t number) {
    if (number < kCount) words_[number / 64].fetch_or(Bit(number));
  }
  void Remove(std::size_t number) {
    if (number < kCount) words_[number / 64].fetch_and(~Bit(number));
  }
  template <typename Function>
  void ForEach(const Function& function) const {
    for (std::size_t number = 0; number < kCount; ++number) {
      if ((words_[number / 64] & Bit(number)) != 0) function(number);
    }
  }

 private:
  static constexpr std::uint64_t Bit(std::size_t number) {
    return std::uint64_t{1} << (number % 64);
  }
  std::atomic<std::uint64_t> words_[kCount / 64]{};
};

constexpr std::size_t kHandleStep = 4;  // handles are multiples of it

constinit NumberSet<2048> slots;
constinit NumberSet<std::size_t{1} << 16> handles;

HANDLE Keep(HANDLE handle) {
  if (handle != nullptr) handles.Add(reinterpret_cast<std::uintptr_t>(handle) / kHandleStep);
  return handle;
}

}  // namespace

// The linker gives these names their meaning: "real" is what is imported, "wrap" what is called.
#define IMPORTED(function) __real___imp_##function
#define CALLED_INSTEAD(function) __wrap___imp_##function
extern "C" {
extern const decltype(&TlsAlloc) IMPORTED(TlsAlloc);
extern const decltype(&TlsFree) IMPORTED(TlsFree);
extern const decltype(&CreateEventA) IMPORTED(CreateEventA);
extern const decltype(&CreateSemaphoreA) IMPORTED(CreateSemaphoreA);
extern const decltype(&DuplicateHandle) IMPORTED(DuplicateHandle);
extern const decltype(&CloseHandle) IMPORTED(CloseHandle);
}

namespace {

DWORD WINAPI TakeSlot() {
  const DWORD slot = IMPORTED(TlsAlloc)();
  slots.Add(slot);
  return slot;
}

BOOL WINAPI FreeSlot(DWORD slot) {
  slots.Remove(slot);
  return IMPORTED(TlsFree)(slot);
}

HANDLE WINAPI MakeEvent(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL initial,
                        const char* name) {
  return Keep(IMPORTED(CreateEventA)(attributes, manual, initial, name));
}

HANDLE WINAPI MakeSemaphore(SECURITY_ATTRIBUTES* attributes, LONG initial, LONG maximum,
                            const char* name) {
  return Keep(IMPORTED(CreateSemaphoreA)(attributes, initial, maximum, name));
}

BOOL WINAPI Duplicate(HANDLE from, HANDLE handle, HANDLE to, HANDLE* made, DWORD access,
                      BOOL inherit, DWORD options) {
  const BOOL done = IMPORTED(DuplicateHandle)(from, handle, to, made, access, inherit, options);
  if (done != 0 && made != nullptr && to == ::GetCurrentProcess()) Keep(*made);
  return done;
}

BOOL WINAPI Close(HANDLE handle) {
  // Before the system can give the same number away again.
  handles.Remove(reinterpret_cast<std::uintptr_t>(handle) / kHandleStep);
  return IMPORTED(CloseHandle)(handle);
}

/// The first object of the DLL to be constructed, and so the last one to be destroyed.
class LetGoAtTheEnd {
 public:
  ~LetGoAtTheEnd() {
    slots.ForEach([](std::size_t slot) { IMPORTED(TlsFree)(static_cast<DWORD>(slot)); });
    handles.ForEach([](std::size_t number) {
      IMPORTED(CloseHandle)(reinterpret_cast<HANDLE>(number * kHandleStep));
    });
  }
};
[[gnu::init_priority(101), maybe_unused]] LetGoAtTheEnd letGoAtTheEnd;

}  // namespace

extern "C" {
extern const decltype(&TlsAlloc) CALLED_INSTEAD(TlsAlloc) = &TakeSlot;
extern const decltype(&TlsFree) CALLED_INSTEAD(TlsFree) = &FreeSlot;
extern const decltype(&CreateEventA) CALLED_INSTEAD(CreateEventA) = &MakeEvent;
extern const decltype(&CreateSemaphoreA) CALLED_INSTEAD(CreateSemaphoreA) = &MakeSemaphore;
extern const decltype(&DuplicateHandle) CALLED_INSTEAD(DuplicateHandle) = &Duplicate;
extern const decltype(&CloseHandle) CALLED_INSTEAD(CloseHandle) = &Close;
}
