#pragma once
// Pieces of Claude Code transcript lines shared by the transcript and usage tests.

#include "core/json.h"

// An assistant message's "usage": cache writes split into five-minute and one-hour ones.
inline Json usage(int input, int output, int cacheRead = 0, int fiveMinute = 0, int oneHour = 0) {
  return {{"input_tokens", input},
          {"output_tokens", output},
          {"cache_read_input_tokens", cacheRead},
          {"cache_creation_input_tokens", fiveMinute + oneHour},
          {"cache_creation",
           {{"ephemeral_5m_input_tokens", fiveMinute}, {"ephemeral_1h_input_tokens", oneHour}}}};
}
