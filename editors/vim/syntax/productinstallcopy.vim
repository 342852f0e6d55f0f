" The copy script of a product: see product-install-copy(5).
if exists('b:current_syntax')
  finish
endif
let b:current_syntax = 'productinstallcopy'

syntax case ignore
syntax match productinstallWrong /^\s*\zs[^# \t]\S*/
syntax match productinstallCommand /^\s*\zs\%(CopyFile\|CopyDir\|MkDir\|Ini\|Rename\)\ze\s/
syntax match productinstallCommand /^\s*\zs\%(RmFile\|RmDir\|Chown\|Chmod\)\ze\s/
syntax match productinstallCommand /^\s*\zs\%(Exist\|Error\|WFile\|RFile\)\ze\s/
syntax match productinstallNone /\s\zs-\ze\%(\s\|$\)/
syntax match productinstallReference /\$([^)]*)/
syntax match productinstallSection /^\s*\[.*/
syntax match productinstallComment /^\s*#.*/

highlight default link productinstallCommand Statement
highlight default link productinstallNone Special
highlight default link productinstallReference PreProc
highlight default link productinstallSection Title
highlight default link productinstallWrong Error
highlight default link productinstallComment Comment
