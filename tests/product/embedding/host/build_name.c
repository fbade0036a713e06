/* Prints the version and the build of the driver that it is linked with. */
#include <plc_driver.h>
#include <stdio.h>

int main(void) {
  puts(plc_driver_build());
  return 0;
}
