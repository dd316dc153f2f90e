# What the effect declares, read by all that depends on it; Plugins/Declarations/Declaration.cmake explains how.
set(EFFECT_NAME "Bilateral Blur")
set(EFFECT_MATCH_NAME "Tessaloom Bilateral Blur")
set(EFFECT_CATEGORY "Blur")
set(EFFECT_DESCRIPTION "Smooths surfaces and keeps edges")
set(EFFECT_DEPTHS 8)
set(EFFECT_MARGIN 29)
slider(NAME "Blur Scale" DESCRIPTION "How far the blur reaches" MINIMUM 0 MAXIMUM 60 DEFAULT 0 PRESETS 10 20 60
       IS_DISTANCE IS_REQUIRED)
