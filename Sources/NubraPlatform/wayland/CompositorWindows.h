#pragma once

#include <QByteArray>
#include <QRect>
#include <QString>

#include <memory>
#include <optional>

class KWinWindows;

// The focused window as the compositor knows it, over its IPC socket: sway and i3-compatible
// compositors ($SWAYSOCK, $I3SOCK), Hyprland, and KWin (through a script of ours, see KWinWindows). A native
// Wayland client learns no window position from the protocol itself. Any failure (no socket, a slow or odd
// reply) gives nothing. Safe from any thread; each call costs at most `timeoutMs`.
class CompositorWindows {
public:
    static constexpr int timeoutMs = 200;
    // A tree of a few hundred windows is well under this.
    static constexpr qsizetype maxReplyBytes = 4 * 1024 * 1024;

    struct Window {
        QRect rect; // the content, in the compositor's layout coordinates
        qint64 pid = 0;
        // The Wayland app id, or the X11 window class of an XWayland window; empty when unnamed.
        QString appId;
    };

    CompositorWindows();
    ~CompositorWindows();

    std::optional<Window> focusedWindow() const;
    std::optional<QRect> focusedWindowRect() const;

    // The focused window in a reply to sway's `get_tree` or Hyprland's `j/activewindow`.
    static std::optional<Window> parseSwayTree(const QByteArray& reply);
    static std::optional<Window> parseHyprlandActiveWindow(const QByteArray& reply);

    // One request over sway's IPC socket (message type 4 is get_tree), and the reply's payload.
    static std::optional<QByteArray> askSway(const QString& socketPath, quint32 type,
                                             const QByteArray& payload = {});
    // One request over Hyprland's socket ("j/activewindow"), and its reply.
    static std::optional<QByteArray> askHyprland(const QString& socketPath, const QByteArray& request);
    // Hyprland's socket in this session; empty outside Hyprland.
    static QString hyprlandSocket();

private:
    std::unique_ptr<KWinWindows> m_kwin; // in a Plasma session only
};
