# The folders of AgentHook/ are layers, each using only those below it:
#   text <- platform <- runtime <- bridge <- claude, codex, grok <- entry
# (tools/ sit on top). Each folder is a static library linking only downward;
# this check, run at every configure, refuses an #include "folder/..." that
# points upward or sideways, so a cycle between folders fails the build
# instead of growing unnoticed.
set(AGENT_HOOK_LAYERS_text text)
set(AGENT_HOOK_LAYERS_platform platform text)
set(AGENT_HOOK_LAYERS_runtime runtime platform text)
set(AGENT_HOOK_LAYERS_bridge bridge runtime platform text)
set(AGENT_HOOK_LAYERS_claude claude bridge runtime platform text)
set(AGENT_HOOK_LAYERS_codex codex bridge runtime platform text)
set(AGENT_HOOK_LAYERS_grok grok bridge runtime platform text)
set(AGENT_HOOK_LAYERS_entry entry claude codex grok bridge runtime platform text)

function(agent_hook_check_layers root)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${root}/*.cpp ${root}/*.hpp)
  set(violations "")
  foreach(source IN LISTS sources)
    file(RELATIVE_PATH relative ${root} ${source})
    string(REGEX MATCH "^[^/]+" folder "${relative}")
    if(NOT DEFINED AGENT_HOOK_LAYERS_${folder})
      list(APPEND violations "${relative}: the folder ${folder} is not a known layer")
      continue()
    endif()
    file(STRINGS ${source} includes REGEX "^#include \"[a-z]+/")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#include \"([a-z]+)/.*" "\\1" used "${line}")
      if(NOT used IN_LIST AGENT_HOOK_LAYERS_${folder})
        list(APPEND violations "${relative} includes ${used}/, above or beside ${folder}/")
      endif()
    endforeach()
  endforeach()
  if(violations)
    list(JOIN violations "\n  " text)
    message(FATAL_ERROR "Layering broken:\n  ${text}")
  endif()
endfunction()
