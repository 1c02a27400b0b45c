#pragma once

#include <QString>

/// Who holds an item.
struct KVXItemCheckState {
    enum State { CheckedIn = 0, CheckedOutByMe = 1, CheckedOutByOther = 2 };

    int state = CheckedIn;
    QString email; ///< of the holder; of the last holder when the item is free
    QString name;
};
