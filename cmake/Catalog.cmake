# Writes the apps of protocol/catalog.json into KELO_GENERATED: AppIdentifiers.inc with their names as enumerators, and the rows
# of C++ tables: AppIdentifierRows.inc and AppInfos.inc for the engine, LabCatalog.inc for the lab.
set(KELO_GENERATED ${CMAKE_BINARY_DIR}/generated)
set(CATALOG_FILE ${PROJECT_SOURCE_DIR}/protocol/catalog.json)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CATALOG_FILE})
file(READ ${CATALOG_FILE} CATALOG)
string(JSON APP_COUNT LENGTH ${CATALOG} apps)
math(EXPR LAST_APP "${APP_COUNT} - 1")
foreach(INDEX RANGE ${LAST_APP})
  foreach(KEY id displayName appBundleName iconName installerBundleIdentifier cdnFormat cdnArch tempFileName
          descriptionCode webUrl sizeBytes expansionRatio otherBundleIdentifiers)
    string(JSON ${KEY} GET ${CATALOG} apps ${INDEX} ${KEY})
  endforeach()
  string(REGEX REPLACE "^\\[(.*)\\]$" "{\\1}" OTHERS "${otherBundleIdentifiers}")
  string(JSON FIRST_OTHER ERROR_VARIABLE NO_OTHER GET ${otherBundleIdentifiers} 0)
  if(NO_OTHER)
    set(FIRST_OTHER "")
  endif()
  string(REGEX REPLACE "\\.app$" "" EXECUTABLE ${appBundleName})
  string(APPEND APP_IDENTIFIERS "${id},\n")
  string(APPEND APP_IDENTIFIER_ROWS "{AppIdentifier::${id}, \"${id}\"},\n")
  string(APPEND APP_INFOS "{.id = AppIdentifier::${id},
 .displayName = \"${displayName}\",
 .appBundleName = \"${appBundleName}\",
 .iconName = \"${iconName}\",
 .installerBundleIdentifier = \"${installerBundleIdentifier}\",
 .otherBundleIdentifiers = ${OTHERS},
 .cdnFormat = \"${cdnFormat}\",
 .cdnArch = CDNArchScope::${cdnArch},
 .tempFileName = \"${tempFileName}\",
 .descriptionCode = \"${descriptionCode}\",
 .webURL = URL::parse(\"${webUrl}\"),
 .sizeBytes = ${sizeBytes},
 .expansionRatio = ${expansionRatio}},\n")
  string(APPEND LAB_CATALOG "{.id = \"${id}\",
 .displayName = \"${displayName}\",
 .bundleName = \"${appBundleName}\",
 .executable = \"${EXECUTABLE}\",
 .identifier = \"${installerBundleIdentifier}\",
 .other = \"${FIRST_OTHER}\",
 .packageName = \"${tempFileName}\"},\n")
endforeach()
file(CONFIGURE OUTPUT ${KELO_GENERATED}/AppIdentifiers.inc CONTENT "${APP_IDENTIFIERS}" @ONLY)
file(CONFIGURE OUTPUT ${KELO_GENERATED}/AppIdentifierRows.inc CONTENT "${APP_IDENTIFIER_ROWS}" @ONLY)
file(CONFIGURE OUTPUT ${KELO_GENERATED}/AppInfos.inc CONTENT "${APP_INFOS}" @ONLY)
file(CONFIGURE OUTPUT ${KELO_GENERATED}/LabCatalog.inc CONTENT "${LAB_CATALOG}" @ONLY)
