# How the declaration of an effect becomes code, property list, editors' files and manual page. An effect's directory
# has a Declaration.cmake, which calls `slider` for each slider and sets
#   EFFECT_NAME         as users see it
#   EFFECT_MATCH_NAME   as hosts know it, which no other effect has and no later version changes
#   EFFECT_CATEGORY     under which a host lists it
#   EFFECT_DESCRIPTION  one line, for users
#   EFFECT_DEPTHS       the bits of a channel that it takes: 8, 16, and 32 for floats
#   EFFECT_MARGIN       how far from a pixel, each way, others are that its result depends on at most
# Whoever makes a file of it calls `read_declaration`, then `fill_in`.

# slider(NAME text DESCRIPTION text MINIMUM n MAXIMUM n DEFAULT n [STEPS n] PRESETS n n n
#        [IS_DISTANCE] [IS_REQUIRED])
# Adds a slider. SliderDeclaration in Plugins/Shared/Effect/Declaration.h explains the fields; the presets are the values
# of an editor's presets "Light", "Medium" and "Strong".
#
# A new maximum changes the look of saved projects: frei0r hosts store a slider's value divided by its maximum.
macro(slider)
    set(EFFECT_SLIDER_${EFFECT_SLIDER_COUNT} "${ARGV}")
    math(EXPR EFFECT_SLIDER_COUNT "${EFFECT_SLIDER_COUNT} + 1")
endmacro()

# read_declaration(EFFECT): sets the variables of an effect's declaration. EFFECT is its directory in Plugins.
macro(read_declaration EFFECT)
    set(EFFECT_DIRECTORY ${EFFECT})
    set(EFFECT_SLIDER_COUNT 0)
    include(${PROJECT_SOURCE_DIR}/Plugins/${EFFECT}/Declaration.cmake)
    key_of(EFFECT_KEY "${EFFECT_NAME}")
    string(REPLACE "-" "_" EFFECT_IDENTIFIER ${EFFECT_KEY})
    # Its entry in the code: bilateralBlurCommand.
    string(SUBSTRING ${EFFECT} 0 1 EFFECT_INITIAL)
    string(TOLOWER ${EFFECT_INITIAL} EFFECT_INITIAL)
    string(SUBSTRING ${EFFECT} 1 -1 EFFECT_COMMAND)
    set(EFFECT_COMMAND ${EFFECT_INITIAL}${EFFECT_COMMAND}Command)
    # Targets begin with the project's name, of which the effect's doesn't repeat the first word: bilateral_blur_smooth.
    string(REGEX REPLACE "^bilateral_" "" EFFECT_TARGET ${EFFECT_IDENTIFIER})
    set(EFFECT_TARGET bilateral_blur_${EFFECT_TARGET})
    # Shotcut sorts its filters by what they do: "Blur: Bilateral".
    string(REGEX REPLACE "^(.*) ([^ ]*)$" "\\2: \\1" EFFECT_SHOTCUT_NAME "${EFFECT_NAME}")
    string(TOLOWER "${EFFECT_SHOTCUT_NAME}" EFFECT_SHOTCUT_KEYWORDS)
    # The depths as bits of the host interface: PF_OutFlag_DEEP_COLOR_AWARE, and PF_OutFlag2_FLOAT_COLOR_AWARE beside
    # PF_OutFlag2_SUPPORTS_SMART_RENDER, which every effect has.
    set(EFFECT_OUT_FLAGS 0)
    set(EFFECT_OUT_FLAGS2 1024)
    if(16 IN_LIST EFFECT_DEPTHS)
        set(EFFECT_OUT_FLAGS 33554432)
    endif()
    if(32 IN_LIST EFFECT_DEPTHS)
        math(EXPR EFFECT_OUT_FLAGS2 "${EFFECT_OUT_FLAGS2} + 4096")
    endif()
    # The version is the project's, packed as version, subversion, bugfix level and build.
    math(EXPR EFFECT_PACKED_VERSION "(${PROJECT_VERSION_MAJOR} << 19) | (${PROJECT_VERSION_MINOR} << 15) \
| (${PROJECT_VERSION_PATCH} << 11) | ${PROJECT_VERSION_TWEAK}")
endmacro()

# The key of a name in options and properties: "Blur Scale" becomes "blur-scale".
function(key_of KEY NAME)
    string(TOLOWER "${NAME}" TEXT)
    string(REGEX REPLACE "[^a-z0-9]+" "-" TEXT "${TEXT}")
    set(${KEY} ${TEXT} PARENT_SCOPE)
endfunction()

# shown(TEXT VALUE STEPS): a slider's value as users see it, 50 of 1000 steps as 0.050.
function(shown TEXT VALUE STEPS)
    math(EXPR WHOLE "${VALUE} / ${STEPS}")
    math(EXPR PART "${STEPS} + ${VALUE} % ${STEPS}")
    string(SUBSTRING ${PART} 1 -1 PART)
    if(STEPS EQUAL 1)
        set(${TEXT} ${VALUE} PARENT_SCOPE)
    else()
        set(${TEXT} ${WHOLE}.${PART} PARENT_SCOPE)
    endif()
endfunction()

# What the manual page says of a slider's option.
macro(manual_of_slider)
    string(REPLACE "-" "\\-" SLIDER_TROFF_KEY ${SLIDER_KEY})
    set(SLIDER_KIND "a number")
    if(SLIDER_STEPS EQUAL 1)
        set(SLIDER_KIND "an integer")
    endif()
    set(SLIDER_NEED "${SLIDER_SHOWN_DEFAULT} if not given")
    if(SLIDER_IS_REQUIRED)
        set(SLIDER_NEED "required")
    endif()
endmacro()

# Sets the SLIDER_... variables of the slider INDEX, from 0, and what follows from them.
macro(load_slider INDEX)
    cmake_parse_arguments(SLIDER "IS_DISTANCE;IS_REQUIRED" "NAME;DESCRIPTION;MINIMUM;MAXIMUM;DEFAULT;STEPS"
                          PRESETS ${EFFECT_SLIDER_${INDEX}})
    if(NOT SLIDER_STEPS)
        set(SLIDER_STEPS 1)
    endif()
    string(TOLOWER ${SLIDER_IS_DISTANCE} SLIDER_IS_DISTANCE)
    string(TOLOWER ${SLIDER_IS_REQUIRED} SLIDER_IS_REQUIRED)
    set(SLIDER_INDEX ${INDEX})
    key_of(SLIDER_KEY "${SLIDER_NAME}")
    foreach(FIELD MINIMUM MAXIMUM DEFAULT)
        shown(SLIDER_SHOWN_${FIELD} ${SLIDER_${FIELD}} ${SLIDER_STEPS})
    endforeach()
    # A frei0r host's value is the slider's, divided by its maximum.
    math(EXPR SLIDER_DEFAULT_POSITION "(10000 * ${SLIDER_DEFAULT} + ${SLIDER_MAXIMUM} / 2) / ${SLIDER_MAXIMUM}")
    shown(SLIDER_DEFAULT_POSITION ${SLIDER_DEFAULT_POSITION} 10000)
    list(GET SLIDER_PRESETS 0 SLIDER_LIGHT)
    list(GET SLIDER_PRESETS 1 SLIDER_MEDIUM)
    list(GET SLIDER_PRESETS 2 SLIDER_STRONG)
    string(LENGTH "${SLIDER_STEPS}" SLIDER_DECIMALS)
    math(EXPR SLIDER_DECIMALS "${SLIDER_DECIMALS} - 1")
    manual_of_slider()
endmacro()

# fill_in(TEMPLATE OUTPUT): configures a template with the variables of the declaration that was read. What is between
# @EACH_SLIDER@ and @END_SLIDER@ is written once for each slider; @SLIDER_COMMA@ separates them.
function(fill_in TEMPLATE OUTPUT)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TEMPLATE})
    file(READ ${TEMPLATE} REST)
    set(FILLED "")
    string(FIND "${REST}" "@EACH_SLIDER@" BEGIN)
    while(NOT BEGIN EQUAL -1)
        string(FIND "${REST}" "@END_SLIDER@" END)
        string(SUBSTRING "${REST}" 0 ${BEGIN} BEFORE)
        math(EXPR FIRST "${BEGIN} + 13")
        math(EXPR LENGTH "${END} - ${FIRST}")
        string(SUBSTRING "${REST}" ${FIRST} ${LENGTH} SECTION)
        math(EXPR END "${END} + 12")
        string(SUBSTRING "${REST}" ${END} -1 REST)
        string(APPEND FILLED "${BEFORE}")
        math(EXPR LAST "${EFFECT_SLIDER_COUNT} - 1")
        foreach(INDEX RANGE ${LAST})
            load_slider(${INDEX})
            set(SLIDER_COMMA ,)
            if(INDEX EQUAL LAST)
                set(SLIDER_COMMA "")
            endif()
            string(CONFIGURE "${SECTION}" ONE @ONLY)
            string(APPEND FILLED "${ONE}")
        endforeach()
        string(FIND "${REST}" "@EACH_SLIDER@" BEGIN)
    endwhile()
    string(CONFIGURE "${FILLED}${REST}" FILLED @ONLY)
    file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "${FILLED}" @ONLY)
endfunction()
