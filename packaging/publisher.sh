# Who publishes the packages: their maintainer, and the licence terms of Zandrel's own code. Sourced by the package
# scripts. Both are placeholders until the product is published; set them in the environment, or here.
maintainer=${KELVARO_MAINTAINER:-Zandrel <kelvaro@zandrel.example>}
terms=${KELVARO_TERMS:-All rights reserved.}
