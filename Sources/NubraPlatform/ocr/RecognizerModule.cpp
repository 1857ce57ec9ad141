// The entry of the module that holds Tesseract: ModuleRecognizer loads it on the first read.
#include "NubraPlatform/ocr/RecognizerModule.h"
#include "NubraPlatform/ocr/TesseractRecognizer.h"

extern "C" Q_DECL_EXPORT TextRecognizer* nubra_create_text_recognizer() {
    return new TesseractRecognizer();
}
