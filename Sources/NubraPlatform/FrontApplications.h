#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// The application in front: its display name, its identifier (bundle identifier on macOS, WM_CLASS
// class on X11; absent when it has none) and its process id (0 when unknown).
struct FrontApp {
    QString name;
    std::optional<QString> identifier;
    qint64 processId = 0;
};

class FrontApplications {
public:
    virtual ~FrontApplications() = default;

    virtual std::optional<FrontApp> frontmost() = 0;
};
