"""Watches the X server from outside the applications: every window mapped and every change of size,
stamped on arrival with time.monotonic(), plus synthetic input through XTest on a second connection.

The watcher selects StructureNotify and SubstructureNotify on every window, including each new one as
it is created, so a map is seen wherever it happens: at the top level, inside a window manager frame or
inside the tray host's socket. MapNotify carries no server time; the arrival time on a thread that does
nothing but wait on the socket is within a fraction of a millisecond of it.
"""
import threading
import time

from Xlib import X, Xatom, display as xdisplay, error as xerror

MASK = X.StructureNotifyMask | X.SubstructureNotifyMask


class Mapped:
    def __init__(self, when, window, pid, width, height, in_tray):
        self.when, self.window, self.pid = when, window, pid
        self.width, self.height, self.in_tray = width, height, in_tray


class XWatch(threading.Thread):
    def __init__(self):
        super().__init__(daemon=True)
        self.display = xdisplay.Display()
        self.root = self.display.screen().root
        self.pid_atom = self.display.intern_atom("_NET_WM_PID")
        self.changed = threading.Condition()
        self.maps = []  # Mapped, in arrival order
        self.sizes = []  # (when, window id, width, height), in arrival order
        self.tray_pid = None
        self._mapped = set()
        self._select_tree(self.root)

    def _select(self, window):
        window.change_attributes(event_mask=MASK, onerror=xerror.CatchError(xerror.BadWindow))

    def _select_tree(self, window):
        self._select(window)
        try:
            children = window.query_tree().children
        except xerror.XError:
            return
        for child in children:
            self._select_tree(child)

    def _pid(self, window):
        try:
            value = window.get_full_property(self.pid_atom, Xatom.CARDINAL)
        except xerror.XError:
            return None
        return int(value.value[0]) if value and len(value.value) else None

    def _inside_tray(self, window):
        """True when one of the window's ancestors belongs to the tray host."""
        for _ in range(12):
            try:
                parent = window.query_tree().parent
            except xerror.XError:
                return False
            if not parent or parent.id == self.root.id:
                return False
            if self.tray_pid is not None and self._pid(parent) == self.tray_pid:
                return True
            window = parent
        return False

    def run(self):
        while True:
            try:
                event = self.display.next_event()
            except xerror.ConnectionClosedError:
                return  # the X server went first, as XWayland does with its compositor
            now = time.monotonic()
            if event.type == X.CreateNotify:
                self._select(event.window)
            elif event.type == X.MapNotify:
                window = event.window
                if window.id in self._mapped:
                    continue  # the same map, reported on the parent as well
                self._mapped.add(window.id)
                try:
                    geometry = window.get_geometry()
                    width, height = geometry.width, geometry.height
                except xerror.XError:
                    width = height = 0
                record = Mapped(now, window.id, self._pid(window), width, height, self._inside_tray(window))
                with self.changed:
                    self.maps.append(record)
                    self.changed.notify_all()
            elif event.type in (X.UnmapNotify, X.DestroyNotify):
                # Window ids come back with the next client that gets the same id range.
                self._mapped.discard(event.window.id)
            elif event.type == X.ConfigureNotify:
                with self.changed:
                    self.sizes.append((now, event.window.id, event.width, event.height))
                    self.changed.notify_all()

    def wait_for(self, find, timeout):
        """Calls find() under the lock until it returns something other than None, or the time is up."""
        deadline = time.monotonic() + timeout
        with self.changed:
            while True:
                found = find()
                if found is not None:
                    return found
                remaining = deadline - time.monotonic()
                if remaining <= 0:
                    return None
                self.changed.wait(remaining)

    def first_map(self, pid, since, accept=lambda m: True):
        return next((m for m in self.maps if m.pid == pid and m.when >= since and accept(m)), None)

    def is_mapped(self, window):
        with self.changed:
            return window in self._mapped


class Input:
    """Synthetic pointer and keys through XTest; each call returns once the server has processed them."""

    def __init__(self):
        self.display = xdisplay.Display()

    def _done(self):
        self.display.sync()
        return time.monotonic()

    def move(self, x, y):
        self.display.xtest_fake_input(X.MotionNotify, x=int(x), y=int(y))
        return self._done()

    def click(self, x, y, count=1, gap=0.08, hold=0.03):
        """Presses and releases the left button the way a hand does, holding it for a moment; returns the
        time just after the last release reached the server."""
        self.move(x, y)
        for i in range(count):
            if i:
                time.sleep(gap)
            self.display.xtest_fake_input(X.ButtonPress, 1)
            self._done()
            time.sleep(hold)
            self.display.xtest_fake_input(X.ButtonRelease, 1)
            released = self._done()
        return released

    def drag(self, start, end, steps=5):
        """Presses the left button at `start`, moves to `end` in steps and lets go; returns the time just
        after the release reached the server."""
        self.move(*start)
        self.display.xtest_fake_input(X.ButtonPress, 1)
        self._done()
        for step in range(1, steps + 1):
            self.move(start[0] + (end[0] - start[0]) * step // steps, start[1] + (end[1] - start[1]) * step // steps)
            time.sleep(0.01)
        self.display.xtest_fake_input(X.ButtonRelease, 1)
        return self._done()

    def key(self, keysym_name):
        from Xlib import XK
        code = self.display.keysym_to_keycode(XK.string_to_keysym(keysym_name))
        self.display.xtest_fake_input(X.KeyPress, code)
        self.display.xtest_fake_input(X.KeyRelease, code)
        return self._done()

    def origin(self, window_id):
        window = self.display.create_resource_object("window", window_id)
        at = self.display.screen().root.translate_coords(window, 0, 0)
        return at.x, at.y

    def selection_owner(self, name):
        return self.display.get_selection_owner(self.display.intern_atom(name))
