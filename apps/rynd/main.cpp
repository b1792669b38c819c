// rynd: turns kernel observations into management events.
#include "core/startup.h"
#include "correlators/agentTable.h"

int main(int argc, char **argv) {
  return rynd::Run(argc, argv, rynd::AgentTable());
}
