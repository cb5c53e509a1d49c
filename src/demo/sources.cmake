# demo database generator
