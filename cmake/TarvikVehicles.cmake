# Vehicle files for tests and benchmarks that need more control units than anybody would write down.

# tarvik_write_many_units(FILE)
# A car of 64 control units, unit_0 to unit_63, that are alike but for their numbers N: requests on
# 600 + N, answers on 640 + N, functional requests on 7DF, and an identification of their own.
function(tarvik_write_many_units file)
    set(units "")
    foreach(number RANGE 63)
        math(EXPR request "0x600 + ${number}" OUTPUT_FORMAT HEXADECIMAL)
        math(EXPR response "0x640 + ${number}" OUTPUT_FORMAT HEXADECIMAL)
        math(EXPR padded "100 + ${number}")
        string(SUBSTRING "${request}" 2 -1 request)
        string(SUBSTRING "${response}" 2 -1 response)
        string(SUBSTRING "${padded}" 1 -1 padded)
        list(APPEND units "{\"name\": \"unit_${number}\", \"request\": \"${request}\", \
\"response\": \"${response}\", \"functional\": [\"7DF\"], \
\"data\": {\"F190\": \"WTVDEM0S1M00000${padded}\"}}")
    endforeach()
    list(JOIN units ",\n" units)
    file(CONFIGURE OUTPUT "${file}" CONTENT "{\"control_units\": [\n${units}\n]}\n" @ONLY)
endfunction()
