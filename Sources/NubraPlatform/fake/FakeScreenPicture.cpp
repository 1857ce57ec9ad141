#include "NubraPlatform/fake/FakeScreenPicture.h"

void FakeScreenPicture::take(QObject* context, std::function<void(Result)> done) {
    ++taken;
    if (context)
        done(result);
}
