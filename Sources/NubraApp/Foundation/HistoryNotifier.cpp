#include "NubraApp/Foundation/HistoryNotifier.h"

HistoryNotifier& HistoryNotifier::shared() {
    static HistoryNotifier notifier;
    return notifier;
}
