# plc_simulator: the plc-sim that the tests start, as a path: this build's own, or for targets that build no tools the
# one of another build, given as PLC_SIM_PROGRAM.
set(PLC_SIM_PROGRAM "" CACHE FILEPATH "plc-sim for the tests of a build without tools")
if(TARGET plc-sim)
  set(plc_simulator $<TARGET_FILE:plc-sim>)
else()
  set(plc_simulator ${PLC_SIM_PROGRAM})
endif()
