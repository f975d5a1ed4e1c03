# How Qt is built for the Windows programs: as a cache for the configuration of qtbase (cmake -C). Static, for size, and
# with no more of Core, Gui, Widgets and Test than the programs and their tests use.

set(CMAKE_BUILD_TYPE Release CACHE STRING "")
set(BUILD_SHARED_LIBS OFF CACHE BOOL "")
set(QT_BUILD_EXAMPLES OFF CACHE BOOL "")
set(QT_BUILD_TESTS OFF CACHE BOOL "")
set(QT_HOST_PATH /usr CACHE PATH "")
file(GLOB host_info_dir /usr/lib/*/cmake/Qt6HostInfo)
cmake_path(GET host_info_dir PARENT_PATH host_cmake_dir)
set(QT_HOST_PATH_CMAKE_DIR "${host_cmake_dir}" CACHE PATH "")

# The C and C++ libraries of the compiler go into the programs, too.
set(FEATURE_static_runtime ON CACHE BOOL "")
set(FEATURE_optimize_size ON CACHE BOOL "")

set(INPUT_opengl no CACHE STRING "")

# Third-party code: the copies in Qt's source, none of this machine's.
foreach(library IN ITEMS doubleconversion freetype harfbuzz jpeg libb2 pcre2 png textmarkdownreader zlib)
  set(FEATURE_system_${library} OFF CACHE BOOL "")
endforeach()

foreach(feature IN ITEMS
    # whole modules and plug-ins
    concurrent dbus direct2d1_1 network printsupport sql tuiotouch vulkan xml
    # Core
    cborstreamwriter concatenatetablesproxymodel glib hijricalendar icu identityproxymodel islamiccivilcalendar
    jalalicalendar libudev mimetype sharedmemory systemsemaphore timezone transposeproxymodel xmlstreamwriter zstd
    # Gui: formats of images and texts that no file of the programs has
    evdev fontconfig freetype gif ico imageformat_jpeg imageformat_ppm imageformat_xbm jpeg movie pdf picture raster_64bit
    raster_fp systemtrayicon tabletevent textmarkdownreader textmarkdownwriter textodfwriter undocommand
    undogroup undostack vnc
    # Widgets
    calendarwidget colordialog columnview commandlinkbutton datawidgetmapper datetimeedit dial dockwidget errormessage
    fontcombobox fontdialog formlayout gestures graphicseffect graphicsview keysequenceedit lcdnumber mdiarea
    progressdialog scroller splashscreen statusbar style_fusion style_stylesheet syntaxhighlighter tablewidget textbrowser
    toolbox undoview whatsthis wizard
    # Test
    itemmodeltester valgrind)
  set(FEATURE_${feature} OFF CACHE BOOL "")
endforeach()
