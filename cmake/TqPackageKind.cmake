# Read by cpack once for each kind of package: each takes the two packages and what only it has.
set(CPACK_COMPONENTS_ALL client master)
string(TOLOWER ${CPACK_GENERATOR} kind)
list(APPEND CPACK_COMPONENTS_ALL client_${kind} master_${kind})
foreach(component client master)
    string(TOUPPER ${component} upper)
    string(TOUPPER ${kind} kind_upper)
    set(CPACK_COMPONENT_${upper}_GROUP ${component})
    set(CPACK_COMPONENT_${upper}_${kind_upper}_GROUP ${component})
endforeach()

# It would stand before each package's own words.
unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY)
