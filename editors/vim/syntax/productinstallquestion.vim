" The questions of a product: see product-install-question(5).
if exists('b:current_syntax')
  finish
endif
let b:current_syntax = 'productinstallquestion'

syntax case ignore
syntax match productinstallWrong /^\s*\zs[^# \t]\S*/
syntax match productinstallCommand /^\s*\zs\%(Text\|YN\|Copy\|Exist\|Error\|Loop\)\ze\s/
syntax match productinstallCommand /^\s*\zs\%(Dir\|DirExist\|DirEmpty\)\ze\s/
syntax match productinstallCommand /^\s*\zs\%(File\|FileExist\|FileName\)\ze\s/
syntax match productinstallNone /\s\zs-\ze\s/
syntax match productinstallEscape /\\./
syntax match productinstallReference /\$([^)]*)/
syntax match productinstallSection /^\s*\[.*/
syntax match productinstallComment /^\s*#.*/

highlight default link productinstallCommand Statement
highlight default link productinstallNone Special
highlight default link productinstallEscape SpecialChar
highlight default link productinstallReference PreProc
highlight default link productinstallSection Title
highlight default link productinstallWrong Error
highlight default link productinstallComment Comment
