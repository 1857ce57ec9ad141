#pragma once

#include "NubraCore/Capture/HotkeyCombo.h"

#include <QObject>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <optional>

// Where Nubra cannot grab a hot key itself, the desktop can run `nubra --lookup` on a key combination
// of its own: set up for the user in the desktop's settings (GNOME), or as a line the user adds to the
// compositor's configuration (sway, Hyprland).
class DesktopShortcuts {
public:
    enum class Setup {
        notNeeded,  // the hot key is grabbed directly, or the desktop offers no way to bind it
        automatic,  // add() and remove() change the desktop's settings
        configLine, // the user adds configLine() to the configuration; add() and remove() do nothing
    };
    struct Status {
        // Whether the desktop runs Nubra's lookup on the combination; nullopt when it cannot be told.
        std::optional<bool> active;
        // What the desktop does on the combination instead ("Close window", "exec foot"); empty when
        // the combination is free or Nubra's.
        QString takenBy;
        // The desktop's settings or its IPC could not be read or written.
        bool failed = false;

        friend bool operator==(const Status&, const Status&) = default;
    };
    using Done = std::function<void(const Status&)>;

    virtual ~DesktopShortcuts() = default;

    virtual Setup setup() const = 0;
    // The desktop as its users call it ("GNOME", "sway"); empty when setup() is notNeeded.
    virtual QString desktopName() const = 0;
    // The configuration line that runs Nubra's lookup on `combo`; empty unless setup() is configLine.
    virtual QString configLine(const HotkeyCombo& combo) const = 0;

    // Each answers once through `done`, on the main thread, in the order asked. add() writes nothing
    // when the combination is taken; remove() takes only Nubra's own binding away.
    virtual void query(const HotkeyCombo& combo, Done done) = 0;
    virtual void add(const HotkeyCombo& combo, Done done) = 0;
    virtual void remove(Done done) = 0;
    // Whether the desktop ran Nubra's lookup on a key by the last answer; nullopt before one came.
    virtual std::optional<bool> lastKnownActive() const { return std::nullopt; }
};

// A desktop where there is nothing to set up.
class NoDesktopShortcuts final : public DesktopShortcuts {
public:
    Setup setup() const override { return Setup::notNeeded; }
    QString desktopName() const override { return {}; }
    QString configLine(const HotkeyCombo&) const override { return {}; }
    void query(const HotkeyCombo&, Done done) override { done({}); }
    void add(const HotkeyCombo&, Done done) override { done({}); }
    void remove(Done done) override { done({}); }
};

// The desktop's shortcut settings asked directly: the answers block (settings writes, a compositor's
// socket), so DesktopShortcutsThread runs them off the main thread.
class BlockingShortcuts {
public:
    using Setup = DesktopShortcuts::Setup;
    using Status = DesktopShortcuts::Status;

    virtual ~BlockingShortcuts() = default;

    virtual Setup setup() const = 0;
    virtual QString desktopName() const = 0;
    virtual QString configLine(const HotkeyCombo& combo) const = 0;
    virtual Status query(const HotkeyCombo& combo) = 0;
    virtual Status add(const HotkeyCombo& combo) = 0;
    virtual Status remove() = 0;
};

// Blocking shortcut settings asked one at a time on a thread of their own.
class DesktopShortcutsThread final : public DesktopShortcuts {
public:
    explicit DesktopShortcutsThread(std::unique_ptr<BlockingShortcuts> settings);
    ~DesktopShortcutsThread() override;

    Setup setup() const override { return m_settings->setup(); }
    QString desktopName() const override { return m_settings->desktopName(); }
    QString configLine(const HotkeyCombo& combo) const override { return m_settings->configLine(combo); }
    void query(const HotkeyCombo& combo, Done done) override;
    void add(const HotkeyCombo& combo, Done done) override;
    void remove(Done done) override;
    std::optional<bool> lastKnownActive() const override { return m_lastActive; }

private:
    void run(std::function<Status()> work, Done done);

    std::unique_ptr<BlockingShortcuts> m_settings;
    std::optional<bool> m_lastActive; // main thread
    QObject m_receiver;               // answers still queued when this goes are dropped with it
    QThreadPool m_worker;             // destroyed first: waits for the work that uses the settings
};

// `program --lookup` as a POSIX shell reads it, the program quoted only when it has to be.
QString lookupCommand(const QString& program);
