#pragma once

#include <QObject>

namespace skylet {

/// For owning pointers to objects that may be let go from inside their own signal; no further signal arrives.
struct DeleteLater {
    void operator()(QObject* object) const {
        object->disconnect();
        object->deleteLater();
    }
};

} // namespace skylet
