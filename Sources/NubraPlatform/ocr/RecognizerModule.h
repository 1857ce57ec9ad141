#pragma once

#include "NubraPlatform/TextRecognizer.h"

// The one function the recognizer module exports: a new recognizer with the system's language data and
// Chinese script, which the caller owns. Resolved by this name.
using CreateTextRecognizer = TextRecognizer* (*)();
inline constexpr char createTextRecognizerSymbol[] = "nubra_create_text_recognizer";
