# The installed interface: what a host app may include, and nothing else. Every type these
# headers declare is exported from the shared library; the other headers beside the sources are
# internal and are not installed.
set(FEXO_PUBLIC_HEADERS
  # The two entry types and the records, enumerations and protocol a host app handles.
  FeXONotificationService/FeXOService.hpp
  FeXONotificationService/FeXONotificationExtensionHandler.hpp
  FeXONotificationService/FeXOConfigurationCheck.hpp
  # The C interface (C99), on the same shared library.
  FeXONotificationService/fexo.h
  FeXONotificationService/Response.hpp
  FeXONotificationService/NotificationData.hpp
  FeXONotificationService/RegisterDeviceModel.hpp
  FeXONotificationService/ErrorModel.hpp
  FeXONotificationService/PushProvider.hpp
  FeXONotificationService/Payloadable.hpp
  FeXONotificationService/NotificationPage.hpp
  FeXONotificationService/NotificationCounts.hpp
  FeXONotificationService/NotificationObservation.hpp
  # The entry types hold these collaborators by value, so their definitions must be complete
  # for a host app; they are exported so that copying and destroying an entry type links.
  FeXONotificationService/DataPersistenceProtocol.hpp
  FeXONotificationService/DataRepository.hpp
  FeXONotificationService/DataStorage.hpp
  FeXONotificationService/DeviceInfo.hpp
  FeXONotificationService/Networking.hpp
  FeXONotificationService/NetworkingService.hpp
  FeXONotificationService/NotificationContentProvider.hpp
  FeXONotificationService/NotificationRequestInfo.hpp
  FeXONotificationService/PushNotificationProvider.hpp
  FeXONotificationService/RegisterDeviceProvider.hpp
  FeXONotificationService/RequestProviding.hpp
  # The platform layer: results and errors, coders, configuration lookup, the URL session
  # and the notification content types.
  FeXOPlatform/Export.hpp
  FeXOPlatform/Result.hpp
  FeXOPlatform/Error.hpp
  FeXOPlatform/URLError.hpp
  FeXOPlatform/DecodingError.hpp
  FeXOPlatform/EncodingError.hpp
  FeXOPlatform/CocoaError.hpp
  FeXOPlatform/NSException.hpp
  FeXOPlatform/FatalError.hpp
  FeXOPlatform/Bundle.hpp
  FeXOPlatform/JSONEncoder.hpp
  FeXOPlatform/JSONDecoder.hpp
  FeXOPlatform/JSONCoding.hpp
  FeXOPlatform/JSONSerialization.hpp
  FeXOPlatform/AnyValue.hpp
  FeXOPlatform/PropertyListValue.hpp
  FeXOPlatform/Date.hpp
  FeXOPlatform/UUID.hpp
  FeXOPlatform/UserDefaults.hpp
  FeXOPlatform/URLSession.hpp
  FeXOPlatform/URLSessionConfiguration.hpp
  FeXOPlatform/URLSessionDataTask.hpp
  FeXOPlatform/URLRequest.hpp
  FeXOPlatform/URL.hpp
  FeXOPlatform/HTTPURLResponse.hpp
  FeXOPlatform/UNNotificationContent.hpp
  FeXOPlatform/UNMutableNotificationContent.hpp
  FeXOPlatform/UNNotificationRequest.hpp)

# A header listed ahead of its arrival is skipped until it exists.
set(_fexo_present)
foreach(header IN LISTS FEXO_PUBLIC_HEADERS)
  if(EXISTS ${PROJECT_SOURCE_DIR}/${header})
    list(APPEND _fexo_present ${header})
  endif()
endforeach()
set(FEXO_PUBLIC_HEADERS ${_fexo_present})

# A public header that includes an internal one would install a header that cannot compile
# for a host app: refuse to configure instead.
foreach(header IN LISTS FEXO_PUBLIC_HEADERS)
  file(STRINGS ${PROJECT_SOURCE_DIR}/${header} includes REGEX "^#include <FeXO")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include <([^>]+)>.*" "\\1" included "${line}")
    if(NOT included IN_LIST FEXO_PUBLIC_HEADERS)
      message(FATAL_ERROR "${header} is public but includes ${included}, which is not: "
        "make it public in cmake/PublicHeaders.cmake or drop the include")
    endif()
  endforeach()
endforeach()
