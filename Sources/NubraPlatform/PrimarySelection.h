#pragma once

#include <QString>

#include <optional>

// The X11 PRIMARY selection: the text last selected anywhere, readable without touching the clipboard.
// Desktops without such a buffer answer nothing.
class PrimarySelection {
public:
    virtual ~PrimarySelection() = default;

    virtual std::optional<QString> text() = 0;
};
