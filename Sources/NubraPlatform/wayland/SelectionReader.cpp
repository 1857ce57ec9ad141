#include "NubraPlatform/wayland/SelectionReader.h"

#include "NubraPlatform/wayland/PipeReader.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

#include <fcntl.h>
#include <memory>
#include <unistd.h>

std::optional<QByteArray> readSelection(WaylandConnection& connection, DataControlDevice::Selection which,
                                        const QStringList& types, qsizetype maxBytes, int timeoutMs) {
    Pipe pipe;
    if (!pipe.valid())
        return std::nullopt;
    // The request gets a write end of its own, closed with the request even when it runs after we
    // stopped waiting for it.
    const int ownEnd = fcntl(pipe.writeEnd(), F_DUPFD_CLOEXEC, 0);
    if (ownEnd < 0)
        return std::nullopt;
    pipe.closeWriteEnd();
    std::shared_ptr<int> writeEnd(new int(ownEnd), [](int* fd) {
        close(*fd);
        delete fd;
    });
    const std::optional<bool> asked = connection.call(
        [which, types, writeEnd = std::move(writeEnd)](WaylandConnection::Objects& objects) mutable {
            bool asked = false;
            if (objects.dataControl) {
                const QStringList offered = objects.dataControl->types(which);
                for (const QString& type : types) {
                    if (offered.contains(type)) {
                        asked = objects.dataControl->receive(which, type, *writeEnd);
                        break;
                    }
                }
            }
            writeEnd.reset(); // the request holds a copy; ours must go for the reader to see the end
            return asked;
        },
        timeoutMs);
    if (!asked.value_or(false))
        return std::nullopt;
    return readPipe(pipe.readEnd(), maxBytes, timeoutMs);
}
