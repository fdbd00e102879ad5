// Typed fields: what the simulated modem's modules show (their part of `status`, the answers of
// their control words), rendered once by the core as text and as JSON. The rendering is shared
// with the QMI trace (typed_fields.h).
#pragma once

#include "typed_fields.h"

namespace modemsim {

using typed_fields::Field;
using typed_fields::Label;
using typed_fields::MergeRecords;
using typed_fields::RenderJsonMembers;
using typed_fields::RenderText;
using typed_fields::Value;

}  // namespace modemsim
