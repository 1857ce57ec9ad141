#pragma once

#include "NubraPlatform/ScreenPicture.h"

// Hands out the result a test set, at once.
class FakeScreenPicture final : public ScreenPicture {
public:
    Result result;
    int taken = 0;

    void take(QObject* context, std::function<void(Result)> done) override;
};
