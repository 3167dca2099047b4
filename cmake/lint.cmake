# Static checks and formatting; both need the compilation database of this build.
