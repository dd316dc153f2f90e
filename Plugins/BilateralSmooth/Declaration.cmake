# What the effect declares, read by all that depends on it; Plugins/Declarations/Declaration.cmake explains how.
set(EFFECT_NAME "Bilateral Smooth")
set(EFFECT_MATCH_NAME "Tessaloom Bilateral Smooth")
set(EFFECT_CATEGORY "Blur")
set(EFFECT_DESCRIPTION "Smooths all colours at the image's own depth and keeps edges")
set(EFFECT_DEPTHS 8 16 32)
set(EFFECT_MARGIN 60)
slider(NAME "Radius" DESCRIPTION "How far the smoothing reaches, in pixels" MINIMUM 0 MAXIMUM 60 DEFAULT 5
       PRESETS 3 5 10 IS_DISTANCE)
slider(NAME "Threshold" DESCRIPTION "Differences above this stay, as a part of full scale" MINIMUM 1 MAXIMUM 1000
       DEFAULT 100 STEPS 1000 PRESETS 40 100 200)
