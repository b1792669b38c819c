// An observation against the catalogue: what no correlator would make anything of is not worth sending.
#pragma once

#include <string>

#include "hosted/records/rawRecord.h"

namespace rynctl {

/// "" when a correlator handles `record`: its id, and arguments in the number and of the kinds that it reads. Else why
/// not, what is wanted or meant, and that --force sends it all the same.
std::string CheckAgainstCatalog(const hosted::RawRecord &record);

}  // namespace rynctl
