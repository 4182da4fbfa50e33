foreach(area clock thread logger text)
  orvane_test(pbase_${area}_test SOURCES pbase_${area}_test.cpp LIBS platform::pbase)
endforeach()
