#pragma once

#include <unistd.h>

#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#ifdef __linux__
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <cerrno>
#endif

namespace kelvane::tests {

/// A kind of system calls, with all the numbers that a C library uses for it.
struct KindOfCalls {
  std::string name;
  std::vector<long> numbers;
};

/// Makes every system call of a kind fail, from a given one on, whoever makes it: this code, the C library or a
/// database. So it imitates a disk that becomes read-only, fills up or dies.
///
/// The kernel passes each call of the kind to a signal handler (seccomp's trap), which makes the call or returns the
/// failure. The handler marks its own calls by a sixth argument, which none of these calls has.
class FailingSystemCalls {
 public:
  FailingSystemCalls() = delete;

  /// In a child: from the `first`-th call of that kind on (1 is the next), each call fails with that error instead of
  /// being made. A process that makes more than `mostCalls` of them is killed, because it would never end. Returns
  /// false, without any effect, if the system does not support this.
  ///
  /// With `last`, the calls after that one are made again, as on a disk that fails for a moment.
  static bool begin(const KindOfCalls& kind, int first, int error, int last = mostCalls + 1);

  /// For `error`: the process is killed just before the `first`-th call.
  static constexpr int death = -1;

  /// How many calls of the kind there were.
  static int count() noexcept { return state().count; }

  /// Runs a function whose calls are neither counted nor fail, like those of another program.
  static void unstaged(const std::function<void()>& happening) {
    state().isStaged = false;
    happening();
    state().isStaged = true;
  }

  /// From now on no call fails.
  static void stop() noexcept { state().isStaged = false; }

  static constexpr int mostCalls = 50'000;

 private:
  struct State {
    int count = 0;
    int first = 0;
    int error = 0;
    int last = 0;
    bool isStaged = true;
  };

  static State& state() noexcept {
    static State state;
    return state;
  }

#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))
  static constexpr unsigned int ownCall = 0x6B656C76;

  static void answer(int, siginfo_t*, void* context) noexcept {
    const int before = errno;
    auto& machine = static_cast<ucontext_t*>(context)->uc_mcontext;
#ifdef __x86_64__
    auto& result = machine.gregs[REG_RAX];  // which holds the number until then
    const long number = static_cast<long>(result);
    const auto argument = [&](int index) {
      constexpr int places[] = {REG_RDI, REG_RSI, REG_RDX, REG_R10, REG_R8};
      return machine.gregs[places[index]];
    };
#else
    auto& result = machine.regs[0];
    const long number = static_cast<long>(machine.regs[8]);
    const auto argument = [&](int index) { return machine.regs[index]; };
#endif
    State& staged = state();
    if (staged.isStaged && ++staged.count > mostCalls) ::kill(::getpid(), SIGKILL);
    if (staged.isStaged && staged.error == death && staged.count == staged.first) ::kill(::getpid(), SIGKILL);
    long answered = -staged.error;
    if (!staged.isStaged || staged.count < staged.first || staged.count > staged.last) {
      answered = ::syscall(number, argument(0), argument(1), argument(2), argument(3), argument(4), ownCall);
      if (answered < 0) answered = -errno;
    }
    result = static_cast<std::remove_reference_t<decltype(result)>>(answered);
    errno = before;
  }
#endif
};

#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))

inline bool FailingSystemCalls::begin(const KindOfCalls& kind, int first, int error, int last) {
  state() = {0, first, error, last, true};
  struct sigaction action {};
  action.sa_sigaction = answer;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  if (::sigaction(SIGSYS, &action, nullptr) != 0) return false;

  const auto statement = [](unsigned int code, std::size_t operand) {
    return sock_filter{static_cast<unsigned short>(code), 0, 0, static_cast<unsigned int>(operand)};
  };
  const auto skipUnless = [](std::size_t value, std::size_t skipped) {
    return sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, static_cast<unsigned char>(skipped),
                       static_cast<unsigned int>(value)};
  };
  std::vector<sock_filter> filter;
  for (const long number : kind.numbers) {
    filter.push_back(statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    filter.push_back(skipUnless(static_cast<std::size_t>(number), 4));
    filter.push_back(statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 5 * sizeof(__u64)));
    filter.push_back(skipUnless(ownCall, 1));
    filter.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    filter.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
  }
  filter.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// The kinds of calls on files, and all of them together.
inline std::vector<KindOfCalls> kindsOfCalls() {
  std::vector<KindOfCalls> kinds = {
      {"open", {SYS_openat, SYS_openat2}},
      {"status", {SYS_newfstatat, SYS_fstat, SYS_statx}},
      {"access", {SYS_faccessat, SYS_faccessat2}},
      {"read", {SYS_read, SYS_pread64}},
      {"write", {SYS_write, SYS_pwrite64, SYS_ftruncate}},
      {"flush", {SYS_fsync, SYS_fdatasync}},
      {"rename", {SYS_renameat2, SYS_renameat}},
      {"link", {SYS_linkat}},
      {"unlink", {SYS_unlinkat}},
      {"mkdir", {SYS_mkdirat}},
      {"entries", {SYS_getdents64}},
      {"seek", {SYS_lseek}},
      {"lock", {SYS_flock}},
      {"control", {SYS_fcntl}},
      {"close", {SYS_close}},
      {"attributes", {SYS_fchown, SYS_fchmod, SYS_flistxattr, SYS_fgetxattr, SYS_fsetxattr, SYS_fremovexattr}},
      {"random", {SYS_getrandom}},
  };
#ifdef __x86_64__  // which has older forms of some
  const auto add = [&](std::size_t kind, std::vector<long> numbers) {
    kinds[kind].numbers.insert(kinds[kind].numbers.end(), numbers.begin(), numbers.end());
  };
  add(0, {SYS_open});
  add(1, {SYS_stat, SYS_lstat});
  add(2, {SYS_access});
  add(6, {SYS_rename});
  add(7, {SYS_link});
  add(8, {SYS_unlink});
  add(9, {SYS_mkdir});
#endif
  KindOfCalls all{"any", {}};
  for (const KindOfCalls& kind : kinds) {
    all.numbers.insert(all.numbers.end(), kind.numbers.begin(), kind.numbers.end());
  }
  kinds.push_back(all);
  return kinds;
}

#else

inline bool FailingSystemCalls::begin(const KindOfCalls&, int, int, int) {
  return false;
}

inline std::vector<KindOfCalls> kindsOfCalls() {
  return {{"any", {}}};
}

#endif

}  // namespace kelvane::tests
