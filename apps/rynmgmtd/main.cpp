// rynmgmtd: the management agent of a plain host.
#include "mgmtd/agent.h"

int main(int argc, char **argv) {
  mgmtd::Options options;
  if (const std::optional<int> status = mgmtd::ParseOptions(argc, argv, &options)) return *status;
  return mgmtd::RunAgent(options);
}
