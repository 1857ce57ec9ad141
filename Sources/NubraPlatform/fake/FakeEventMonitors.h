#pragma once

#include "NubraPlatform/EventMonitors.h"

#include <map>

// Installed monitors held by kind; a test plays events into them.
class FakeEventMonitors final : public EventMonitors {
public:
    std::optional<Token> addGlobalMouseUpMonitor(MouseHandler handler) override;
    std::optional<Token> addGlobalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalMouseDownMonitor(MouseHandler handler) override;
    std::optional<Token> addLocalKeyDownMonitor(KeyHandler handler) override;
    std::optional<Token> addGlobalKeyDownMonitor(KeyHandler handler) override;
    // Refused unless `reportsSelectionChanges`, as on a desktop whose mouse monitors see everything.
    std::optional<Token> addGlobalSelectionMonitor(SelectionHandler handler) override;
    void removeMonitor(Token token) override;

    int installed() const;
    bool reportsSelectionChanges = false;

    void globalMouseUp(const MouseEvent& event);
    void globalMouseDown(const MouseEvent& event);
    void localMouseDown(const MouseEvent& event);
    void localKeyDown(const KeyEvent& event);
    // A key pressed in another application; like the platform, only Escape gets through.
    void globalKeyDown(const KeyEvent& event);
    void selectionChanged(const SelectionChange& change);

private:
    enum class Kind { globalUp, globalDown, localDown, localKey, globalKey, selection };
    struct Entry {
        Kind kind;
        MouseHandler mouse;
        KeyHandler key;
        SelectionHandler selection = {};
    };
    Token add(Entry entry);
    void playMouse(Kind kind, const MouseEvent& event);
    void playKey(Kind kind, const KeyEvent& event);

    Token m_next = 1;
    std::map<Token, Entry> m_monitors;
};
