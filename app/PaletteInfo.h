#pragma once

#include <QColor>

/// What the colours of this program's own texts depend on. One record for the process, see `paletteInfo`.
struct PaletteInfo {
    /// Reads the palette of this moment.
    PaletteInfo() { refresh(); }

    /// Reads the application's palette again.
    void refresh();

    /// The background of texts.
    QColor color;
    /// Whether that background is on the dark side: of a lightness below 128.
    bool dark = false;
};

/// The record of this process, read from the palette at the first call. Only after the application object was made.
PaletteInfo& paletteInfo();
