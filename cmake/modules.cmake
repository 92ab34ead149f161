# A module that zt2export, its reader or the host loads at run time. Every
# symbol it needs is resolved when it is linked, so a missing one fails the
# build instead of a run, and the loaders may bind its calls on their first use
# instead of looking each one up every time the module is loaded. Under the
# sanitizers the runtime lives in the executable, so its symbols stay open.
function(ztx_loaded_module target)
  if(NOT ZTX_SANITIZE AND NOT ZTX_FUZZ)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
