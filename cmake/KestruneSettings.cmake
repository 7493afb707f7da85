# Deployment settings: a site sets them with -D; the defaults are harmless names that nobody owns.
set(KESTRUNE_MAKERS_MARK "kestrune" CACHE STRING "Maker's mark at the end of the version banner")
set(KESTRUNE_SERVICE_DOMAIN_1 "messagerie.example" CACHE STRING "First mail domain of the service (found anywhere in a domain)")
set(KESTRUNE_SERVICE_DOMAIN_2 "sante.example" CACHE STRING "Second mail domain of the service (found anywhere in a domain)")
set(KESTRUNE_SERVICE_DOMAIN_3 "praticien.example" CACHE STRING "Third mail domain of the service (a domain begins with it)")
set(KESTRUNE_SERVICE_DOMAIN_4 "cabinet.example" CACHE STRING "Fourth mail domain of the service (found anywhere in a domain)")
set(KESTRUNE_DOMAIN_SUFFIX_1 ".reseau.example" CACHE STRING "First suffix of a domain that begins with \"medical\"")
set(KESTRUNE_DOMAIN_SUFFIX_2 ".region.example" CACHE STRING "Second suffix of a domain that begins with \"medical\"")
set(KESTRUNE_GATEWAY_DOMAIN "@passerelle.example" CACHE STRING "Mail domain of the interop gateway, with its leading at-sign")

# An empty name is found in every domain, so everybody's mail would belong to the service.
foreach(name IN ITEMS SERVICE_DOMAIN_1 SERVICE_DOMAIN_2 SERVICE_DOMAIN_3 SERVICE_DOMAIN_4 DOMAIN_SUFFIX_1 DOMAIN_SUFFIX_2)
  if(KESTRUNE_${name} STREQUAL "")
    message(FATAL_ERROR "KESTRUNE_${name} must not be empty")
  endif()
endforeach()

configure_file(${PROJECT_SOURCE_DIR}/core/settings.h.in ${PROJECT_BINARY_DIR}/generated/kestrune_settings.h @ONLY)
