/* Preloaded into a server: transfers move less than they were asked for, and calls that can be interrupted are. Everything that is
   done is done by the system, so that a program sees nothing that a busy machine could not show it.

   PLX_SHORT_SEED begins the sequence, PLX_SHORT_COUNT names a file of 8 bytes that counts the calls meddled with. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

static uint64_t* counter;
static uint64_t seed;
static __thread uint64_t state;

__attribute__((constructor)) static void Begin(void) {
  char const* const text = getenv("PLX_SHORT_SEED");
  char const* const name = getenv("PLX_SHORT_COUNT");
  int const file = name ? open(name, O_RDWR | O_CLOEXEC) : -1;
  seed = text ? strtoull(text, 0, 10) : 1;
  if (file == -1) return;
  void* const page = mmap(0, 8, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (page != MAP_FAILED) counter = page;
  close(file);
}

static uint64_t Random(void) {
  if (state == 0) state = (seed * 0x9E3779B97F4A7C15u) ^ ((uint64_t)gettid() << 32) ^ 1;
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return state;
}
static void Count(void) {
  if (counter) __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
}
/* Only what may sleep is interrupted, and what a pipe holds comes as it was written. */
static int IsMeddledWith(int file) {
  struct stat status;
  return counter && fstat(file, &status) == 0 && (S_ISREG(status.st_mode) || S_ISSOCK(status.st_mode));
}
static int IsInterrupted(int file) {
  if (!IsMeddledWith(file) || (fcntl(file, F_GETFL) & O_NONBLOCK) != 0 || Random() % 5 != 0) return 0;
  Count();
  errno = EINTR;
  return 1;
}
static size_t Shorter(int file, size_t count) {
  if (!IsMeddledWith(file) || count < 2 || Random() % 4 == 0) return count;
  Count();
  return Random() % 3 == 0 ? 1 : 1 + Random() % count;
}
/* The first part alone, shortened: a transfer of several parts may stop in any of them. */
static struct iovec Part(int file, struct iovec const* parts, int count) {
  struct iovec part = {0, 0};
  for (int index = 0; index < count && part.iov_len == 0; ++index) part = parts[index];
  part.iov_len = Shorter(file, part.iov_len);
  return part;
}

/* Whether a call that waits, or opens, is interrupted. */
static int IsDisturbed(void) {
  if (!counter || Random() % 5 != 0) return 0;
  Count();
  errno = EINTR;
  return 1;
}

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
#define TRANSFER(result, name, parameters, ...) \
  result name parameters { return IsInterrupted(f) ? -1 : NEXT(name)(__VA_ARGS__); }

TRANSFER(ssize_t, read, (int f, void* b, size_t n), f, b, Shorter(f, n))
TRANSFER(ssize_t, write, (int f, void const* b, size_t n), f, b, Shorter(f, n))
TRANSFER(ssize_t, pread, (int f, void* b, size_t n, off_t o), f, b, Shorter(f, n), o)
TRANSFER(ssize_t, pread64, (int f, void* b, size_t n, off64_t o), f, b, Shorter(f, n), o)
TRANSFER(ssize_t, pwrite, (int f, void const* b, size_t n, off_t o), f, b, Shorter(f, n), o)
TRANSFER(ssize_t, pwrite64, (int f, void const* b, size_t n, off64_t o), f, b, Shorter(f, n), o)
TRANSFER(ssize_t, recv, (int f, void* b, size_t n, int g), f, b, Shorter(f, n), g)
TRANSFER(ssize_t, send, (int f, void const* b, size_t n, int g), f, b, Shorter(f, n), g)
TRANSFER(int, fsync, (int f), f)

TRANSFER(int, ftruncate, (int f, off_t n), f, n)
TRANSFER(int, ftruncate64, (int f, off64_t n), f, n)

ssize_t writev(int f, struct iovec const* v, int n) {
  struct iovec const part = Part(f, v, n);
  return IsInterrupted(f) ? -1 : NEXT(writev)(f, &part, 1);
}
ssize_t readv(int f, struct iovec const* v, int n) {
  struct iovec const part = Part(f, v, n);
  return IsInterrupted(f) ? -1 : NEXT(readv)(f, &part, 1);
}
ssize_t pwritev2(int f, struct iovec const* v, int n, off_t o, int g) {
  struct iovec const part = Part(f, v, n);
  return IsInterrupted(f) ? -1 : NEXT(pwritev2)(f, &part, 1, o, g);
}
ssize_t pwritev64v2(int f, struct iovec const* v, int n, off64_t o, int g) {
  struct iovec const part = Part(f, v, n);
  return IsInterrupted(f) ? -1 : NEXT(pwritev64v2)(f, &part, 1, o, g);
}
/* Whoever sends without waiting takes a short transfer for a full buffer, and waits for room. So nothing is cut here; the buffer is
   as small as the system makes it. */
int accept(int f, struct sockaddr* a, socklen_t* l) {
  if (IsInterrupted(f)) return -1;
  int const connection = NEXT(accept)(f, a, l);
  int const size = 1;
  if (connection == -1 || !counter) return connection;
  setsockopt(connection, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  Count();
  return connection;
}
ssize_t recvmsg(int f, struct msghdr* m, int g) {
  struct iovec* const parts = m->msg_iov;
  size_t const count = m->msg_iovlen;
  struct iovec part = Part(f, parts, (int)count);
  if (IsInterrupted(f)) return -1;
  m->msg_iov = &part;
  m->msg_iovlen = 1;
  ssize_t const received = NEXT(recvmsg)(f, m, g);
  m->msg_iov = parts;
  m->msg_iovlen = count;
  return received;
}
int poll(struct pollfd* p, nfds_t n, int t) { return IsDisturbed() ? -1 : NEXT(poll)(p, n, t); }
int epoll_wait(int e, struct epoll_event* v, int n, int t) { return IsDisturbed() ? -1 : NEXT(epoll_wait)(e, v, n, t); }

/* A connection whose call is interrupted goes on being made. */
int connect(int f, struct sockaddr const* a, socklen_t l) {
  if (!counter || Random() % 2 == 0) return NEXT(connect)(f, a, l);
  int const flags = fcntl(f, F_GETFL);
  if ((flags & O_NONBLOCK) != 0) return NEXT(connect)(f, a, l);
  fcntl(f, F_SETFL, flags | O_NONBLOCK);
  int const result = NEXT(connect)(f, a, l);
  fcntl(f, F_SETFL, flags);
  if (result == 0 || errno != EINPROGRESS) return result;
  Count();
  errno = EINTR;
  return -1;
}
int open(char const* p, int g, ...) {
  va_list list;
  va_start(list, g);
  mode_t const mode = (g & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  return IsDisturbed() ? -1 : NEXT(open)(p, g, mode);
}
