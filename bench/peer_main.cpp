// bench_peer: prints "listening on 127.0.0.1:PORT", answers one connection from the table, ends with it.
#include <cstdio>

#include "bench/peer.h"

int main() {
  const bench::Listener listener;
  std::printf("listening on 127.0.0.1:%u\n", static_cast<unsigned>(listener.port));
  std::fflush(stdout);
  bench::answer_one_connection(listener, bench::kRecordNothing);
  return 0;
}
