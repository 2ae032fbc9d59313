// The shared fixtures library is compiled once, without VORLIX_TEST_GUI, so its main() makes a
// QCoreApplication. Compiling the same main here, with the define this target carries, gives
// the widget suites their QApplication; the linker then never pulls the library's copy.
#include "TestMain.cpp"
