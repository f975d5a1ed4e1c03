#include "app/PaletteInfo.h"

#include <QGuiApplication>
#include <QPalette>

void PaletteInfo::refresh()
{
    color = QGuiApplication::palette().color(QPalette::Base);
    dark = color.lightness() < 128;
}

PaletteInfo& paletteInfo()
{
    static PaletteInfo info;
    return info;
}
