#pragma once

#include <QColor>

/// Whether the palette is dark, which decides the colour of errors.
struct PaletteInfo {
    PaletteInfo() { refresh(); }

    /// Reads the application's current palette.
    void refresh();

    /// The background of texts.
    QColor color;
    /// Whether the lightness of `color` is below 128, of 0 to 255.
    bool dark = false;
};

/// The record of the process, filled at the first call. The application object must exist by then.
PaletteInfo& paletteInfo();
