// The baseline for the controller's start-to-exit benchmark: a GUI-subsystem, wide-entry,
// statically linked Windows program that does nothing.
int wmain() {
  return 0;
}
