# The Python module where Debian looks for it, for its package alone; elsewhere it is `pip install ./python`.
set(python_folder lib/python3/dist-packages)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/kestrune DESTINATION ${python_folder} COMPONENT python
  FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/python/METADATA @ONLY CONTENT
"Metadata-Version: 2.1
Name: kestrune
Version: @PROJECT_VERSION@
Summary: Sealed and signed messages: the kestrune library from Python
Requires-Python: >=3.9
")
install(FILES ${PROJECT_BINARY_DIR}/python/METADATA COMPONENT python
  DESTINATION ${python_folder}/kestrune-${PROJECT_VERSION}.dist-info)
