#pragma once

namespace qk {

void OutputHelp();

}  // namespace qk
