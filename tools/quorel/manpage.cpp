// Prints the quorel tool's manual page from the same help table as the tool.
// It is built for the machine that builds quorel, so making the page never
// runs the 32-bit tool (which that machine may be unable to run).
#include <iostream>

#include "command.h"

int main() {
  std::cout << tool::manualPage();
  return std::cout ? 0 : 1;
}
